// ffmpeg as it copies the encoder's stream into a file: how it is started, and how it is ended so that the
// file is whole. Recording worker.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/child_process.h"

// Starts ffmpeg for the camera's stream into the file `path`, which must not exist. It is stopped when the
// calling thread ends: the next start of the daemon ends it in order. Returns 0, or the error number.
int start_ffmpeg(const std::string& path, child_process* child);

// Waits until a process that was told to end, and is not stopped, has done so: 2 s; then the connection to
// the encoder is shut down, on which ffmpeg waits when the encoder is silent; 10 s later it is killed, and
// its file has no index.
void await_ffmpeg_end(pid_t pid);

// Ends whatever else writes to `path`, or is about to: the ffmpeg of a daemon that was killed. It is stopped,
// and may have had its SIGTERM already, of which a second one would cost the file's index; so its connection
// to the encoder is shut down.
void end_writers(const std::string& path);
