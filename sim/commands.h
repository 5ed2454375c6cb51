#ifndef SIM_COMMANDS_H_
#define SIM_COMMANDS_H_

#include <cstdint>
#include <string>

namespace morvane::ap {

class Simulator;

// The simulator's command language: what script mode reads line by line and
// what the terminal view's keys produce, e.g. "wan online", "intensity 70",
// "led vox in_progress 30". CommandHelp() lists them, with script mode's.
std::string CommandHelp();

// Runs one command line on |simulator|. An empty line or a "#" comment does
// nothing. Reports "error ..." (for a known command with what its arguments
// must be) and returns false for a line it cannot run or a simulator already
// shut down; "quit" ends the loop at once.
bool ExecuteCommand(Simulator* simulator, const std::string& line);

// Parses a whole decimal number in |min|..|max| into |*out|; false for
// anything else, for script mode's arguments as for the commands'.
bool ParseNumber(const std::string& text, int64_t min, int64_t max,
                 int64_t* out);

}  // namespace morvane::ap

#endif  // SIM_COMMANDS_H_
