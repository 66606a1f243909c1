// How full the stores are, looked at once a second by a thread of its own: a store that hangs holds nobody
// else.
#pragma once

// Start-up, once.
void start_usb_store_watch();

// Measures the USB store. Waits for it. The watch's thread.
void measure_usb_store();

// Percent in use as last measured; 0 when it cannot be told. Any thread.
int usb_store_percent();
