// The controller's worker: the camera's power-up sequence, its known state, and the IR filter's commands. It
// may wait for a camera for ever; a request never waits for it.
#pragma once

// Starts the worker and asks for the power-up sequence. Main thread, once.
void start_defaults_worker();

// Any thread.
void request_ir_filter();
