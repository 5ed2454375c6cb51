#include "platform/command_line.h"

#include <gflags/gflags.h>

#include <cstdio>
#include <cstdlib>
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

}  // namespace

void ParseCommandLine(int* argc, char*** argv, const ProgramHelp& help) {
  if (help.summary) gflags::SetUsageMessage(help.summary);
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
