#include "platform/command_line.h"

#include <gflags/gflags.h>
#include <sysexits.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace morvane::ap {
namespace {

bool FlagIsTrue(const char* name) {
  std::string value;
  return gflags::GetCommandLineOption(name, &value) && value == "true";
}

void PrintHelp(const ProgramHelp& help) {
  const char* name = gflags::ProgramInvocationShortName();
  std::printf("%s: %s\n", name, help.summary ? help.summary : "");
  if (help.usage) std::printf("\nUsage: %s\n", help.usage);
  std::vector<gflags::CommandLineFlagInfo> flags;
  gflags::GetAllFlags(&flags);
  bool first = true;
  for (const gflags::CommandLineFlagInfo& flag : flags) {
    if (!help.flags_file || flag.filename != help.flags_file) continue;
    if (first) std::printf("\nFlags:\n");
    first = false;
    const char* quote = flag.type == "string" ? "\"" : "";
    std::printf("  --%s: %s (default: %s%s%s)\n", flag.name.c_str(),
                flag.description.c_str(), quote, flag.default_value.c_str(),
                quote);
  }
  if (help.details) std::printf("\n%s", help.details);
}

[[noreturn]] void Refuse(const char* argv0, const ProgramHelp& help,
                         const std::string& problem) {
  const char* slash = strrchr(argv0, '/');
  const char* name = slash ? slash + 1 : argv0;
  fprintf(stderr, "%s: %s\n", name, problem.c_str());
  if (help.usage) fprintf(stderr, "Usage: %s\n", help.usage);
  fprintf(stderr, "Try '%s --help'.\n", name);
  std::exit(EX_USAGE);
}

// Whether |arg| names a flag of the program or of its libraries (glog's
// --v, say): "--name", "-name", "--name=value", "--noname" for a boolean.
// |takes_next| says whether the value is the next word ("--v 2").
bool IsKnownFlag(const char* arg, bool* takes_next) {
  const std::string text = arg + (arg[1] == '-' ? 2 : 1);
  const size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  gflags::CommandLineFlagInfo info;
  *takes_next = false;
  if (gflags::GetCommandLineFlagInfo(name.c_str(), &info)) {
    *takes_next = equals == std::string::npos && info.type != "bool";
    return true;
  }
  return name.starts_with("no") &&
         gflags::GetCommandLineFlagInfo(name.c_str() + 2, &info) &&
         info.type == "bool";
}

// gflags alone would end an unknown flag with status 1 and pass any
// number of words in silence.
void CheckArguments(int argc, char** argv, const ProgramHelp& help) {
  int words = 0;
  bool flags_end = false;
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    bool takes_next = false;
    if (!flags_end && strcmp(arg, "--") == 0) {
      flags_end = true;
      continue;
    }
    if (flags_end || arg[0] != '-' || arg[1] == '\0') {
      if (++words > help.max_arguments) {
        Refuse(argv[0], help, std::string("unexpected argument '") + arg + "'");
      }
    } else if (!IsKnownFlag(arg, &takes_next)) {
      Refuse(argv[0], help, std::string("unknown option '") + arg + "'");
    }
    if (takes_next) ++i;
  }
}

}  // namespace

void ParseCommandLine(int* argc, char*** argv, const ProgramHelp& help) {
  if (help.summary) gflags::SetUsageMessage(help.summary);
  // "-h" and "help" alone ask for what "--help" prints.
  if (*argc == 2 &&
      (strcmp((*argv)[1], "-h") == 0 || strcmp((*argv)[1], "help") == 0)) {
    static char help_flag[] = "--help";
    (*argv)[1] = help_flag;
  }
  CheckArguments(*argc, *argv, help);
  gflags::ParseCommandLineNonHelpFlags(argc, argv, true);
  // gflags' own --helpfull lists every library's flags with the paths they
  // were built from: no use to whoever runs the program.
  if (FlagIsTrue("help") || FlagIsTrue("helpfull") || FlagIsTrue("helpshort")) {
    PrintHelp(help);
    std::exit(0);
  }
  if (help.version && FlagIsTrue("version")) {
    std::printf("%s %s\n", gflags::ProgramInvocationShortName(),
                help.version);
    std::exit(0);
  }
  // The other help flags (--helpxml, --helpon, ...) as gflags has them.
  gflags::HandleCommandLineHelpFlags();
}

void ParseCommandLine(int* argc, char*** argv, const char* usage,
                      const char* flags_file) {
  ParseCommandLine(argc, argv,
                   ProgramHelp{.summary = usage, .flags_file = flags_file});
}

}  // namespace morvane::ap
