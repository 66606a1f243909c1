// The text commands that set and show the simulated board.
#pragma once

#include <string>
#include <string_view>

#include "sim/board/board_model.h"

// Carries out one command line ("vin 18.0", "status 2 on", "show"; "help" lists them) and returns the reply:
// one or more lines, each ended by a newline; "ok" for a command that only sets, "error: ..." for one that
// changed nothing.
std::string board_command(board_model& board, std::string_view line);
