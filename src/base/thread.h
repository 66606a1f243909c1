// Starting threads.
#pragma once

#include <pthread.h>

using thread_body = void* (*)(void*);

// What a thread calls when it has ended what it was asked for.
using completion_function = void (*)();

// Starts a thread named `name` (at most 15 characters, shown by ps -L) with every signal blocked, so that
// signals reach the main loop only. Returns 0 or the error number of pthread_create. Any thread.
int start_thread(pthread_t* handle, const char* name, thread_body body, void* argument);

// The same for a thread that nobody joins: it ends with the process.
int start_detached_thread(const char* name, thread_body body, void* argument);

// Lets the calling thread run before those that serve requests when the processor is short: as a real-time
// thread, else by nice, else by short turns, as the system allows. Threads and children that it starts are
// ordinary again.
void run_before_others();
