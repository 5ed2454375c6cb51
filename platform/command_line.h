#ifndef PLATFORM_COMMAND_LINE_H_
#define PLATFORM_COMMAND_LINE_H_

namespace morvane::ap {

// What --help and --version say of a program. Null fields are left out.
struct ProgramHelp {
  // The line after the program's name ("AV Daemon").
  const char* summary = nullptr;
  // The usage line, without "Usage: ".
  const char* usage = nullptr;
  // Printed as it is after the flags: the environment the program reads,
  // say.
  const char* details = nullptr;
  // --version prints the program's name and this; without it --version is
  // left to gflags.
  const char* version = nullptr;
  // The source file that defines the program's own flags (its __FILE__).
  const char* flags_file = nullptr;
  // How many words, besides flags, the program takes.
  int max_arguments = 0;
};

// Parses the command line (gflags) and removes the flags it took, leaving
// the other words in argv[1..]. "--help" (or "-h" or "help" alone),
// "--helpfull" and "--helpshort" print the program's name, the summary, the
// usage, the flags defined in |help.flags_file| (not the 40-odd of the
// libraries it links, nor their build paths) and the details, and exit
// with 0; "--version" prints "<name> <version>" and exits with 0. An
// unknown flag, or more words than |help.max_arguments|, prints what is
// wrong and the usage and exits with 64 (EX_USAGE); a bad flag value
// prints why and exits with 1.
void ParseCommandLine(int* argc, char*** argv, const ProgramHelp& help);

// The same with only a summary and the flags of |flags_file|.
void ParseCommandLine(int* argc, char*** argv, const char* usage,
                      const char* flags_file);

}  // namespace morvane::ap

#endif  // PLATFORM_COMMAND_LINE_H_
