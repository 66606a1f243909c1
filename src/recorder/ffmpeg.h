// ffmpeg as it copies the encoder's stream into a file: how it is started, and how it is ended so that the
// file is whole. Recording worker, if nothing else is said.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/child_process.h"

// Starts ffmpeg for the camera's stream into the file `path`, which must not exist. It is stopped when the
// calling thread ends: the next start of the daemon ends it in order. Returns 0, or the error number.
int start_ffmpeg(const std::string& path, child_process* child);

// Asks ffmpeg to end with a whole file, and a stopped one to go on; does not wait. A second signal costs the
// file its index, and a service manager, or the machine that goes down, sends one of its own to every
// process: so ffmpeg's connection to the encoder is shut down, on which it ends as at the end of the stream,
// also when the encoder is silent. Only one without a connection, which has nothing to lose, is sent SIGTERM.
// Any thread, before the process has been reaped.
void end_ffmpeg(pid_t pid);

// Waits until a process that was asked to end has done so. After 10 s it is sent SIGTERM, 2 s later it is
// killed, and its file has no index.
void await_ffmpeg_end(pid_t pid);

// Ends whatever else writes to `path`, or is about to, in the same way: the ffmpeg of a daemon that was
// killed. It is stopped.
void end_writers(const std::string& path);
