#ifndef PLATFORM_COMMAND_LINE_H_
#define PLATFORM_COMMAND_LINE_H_

namespace morvane::ap {

// Parses the command line (gflags) and removes the flags it took. "--help"
// prints the program's name, |usage| and the flags defined in the source
// file |flags_file| (pass __FILE__ from the file that defines them), not
// those of the libraries it links, and exits with 0. A bad flag prints why
// and exits with 1.
void ParseCommandLine(int* argc, char*** argv, const char* usage,
                      const char* flags_file);

}  // namespace morvane::ap

#endif  // PLATFORM_COMMAND_LINE_H_
