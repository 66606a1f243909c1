// The trace log: the service log of the daemon, written to the stick at "/media/usb99" when one is mounted at
// start. Each level has a bit in a 32-bit mask, kept in a text file on the same stick and re-read whenever
// that file changes. Every function may be called on any thread; every failure is silent but where a result
// is stated.
#pragma once

#include <cstdint>

// Levels, which are also the mask's bit numbers.
enum trace_level : int {
  kTraceSupervisor = 0,
  kTraceCameraLink = 1,
  kTraceCameraSend = 2,
  kTraceIntensityLoop = 3,
  kTraceApi = 4,
  kTracePowerBoard = 5,
  kTraceVisca = 6,
  kTraceFocusLoop = 7,
  kTraceZoomLoop = 8,
  kTraceRecorder = 9,
  kTraceInstaller = 10,
  kTraceOverlay = 11,
  kTraceCamera = 12,
  kTraceSettings = 13,
  kTraceLogger = 14,
  kTraceHeightMotor = 15,
  kTraceRefresh = 16,
  kTraceHttpServer = 17,
  kTraceMaskMonitor = 31,
};

// Opens the log: the last run's trace is kept as "trace_old", the mask is read (and its file made when
// missing), the mask monitor is started. Called once, before anything else runs.
void init_trace();

// From now on lines are written by a thread of the log's own, in their order and at once, so that nobody
// waits for the stick, whatever lock he holds. Lines for which a hanging stick leaves no room are counted,
// and the count is written in their place. Start-up.
void start_trace_writer();

// Waits until all lines are written, at most 1 s; false when the stick hangs: the process must then end
// without closing its log. Main loop, when it has ended.
bool drain_trace();

// Writes one line "TAG: message [HH:MM:SS.mmm]" when the level's bit is set. Control characters of the
// message become dots, but for a newline that ends the format. A disabled level costs two tests.
void trace(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Writes "label:" and then rows of 16 bytes, in hexadecimal and as characters.
void trace_data(int level, const char* label, const void* bytes, long length);

// Writes the mask file in place (a rename would end the monitor's watch), flushed with its name; the monitor
// then takes the mask up. Returns 0, or -1 when the file cannot be written. Waits for the stick.
int set_trace_mask(uint32_t mask);

uint32_t get_trace_mask();
