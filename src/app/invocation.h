// What comes before the start: the words of the command line, and the claim that a unit has one daemon. Main
// thread.
#pragma once

#include <optional>

// The exit status when all has been done that the command line asks for: 0 for "--help" and "--version", 2
// for what is not understood. Nothing when the daemon is to run.
std::optional<int> answer_command_line(int count, const char* const* words);

// Makes this process the unit's daemon until it ends, in whatever way; none of its children is. One that has
// just been killed is waited for, at most 2 s. False, told on standard error, while there is another one.
bool claim_unit(const char* program_name);
