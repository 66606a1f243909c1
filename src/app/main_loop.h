// Running something on the main loop from another thread.
#pragma once

struct ev_loop;

using main_loop_function = void (*)();

// Serves posts on `loop`, also those that came before. Main thread, before its first timer is armed.
void open_main_loop_mailbox(struct ev_loop* loop);

// Refuses posts from now on; what waits is dropped. Main thread, when the loop has ended.
void close_main_loop_mailbox();

// Has the main loop call `function` soon. Never waits. A function that waits already is not queued twice: it
// runs once, after this call. Before the loop has begun it waits for that. False when the loop has ended or
// too many different ones wait. Any thread.
bool post_to_main_loop(main_loop_function function);
