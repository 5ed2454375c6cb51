#include "platform/command_line.h"

#include <gflags/gflags.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace morvane::ap {

void ParseCommandLine(int* argc, char*** argv, const char* usage,
                      const char* flags_file) {
  gflags::SetUsageMessage(usage);
  gflags::ParseCommandLineNonHelpFlags(argc, argv, true);
  std::string help;
  if (!gflags::GetCommandLineOption("help", &help) || help != "true") {
    // The other help flags (--helpfull, --version, ...) as gflags has them.
    gflags::HandleCommandLineHelpFlags();
    return;
  }
  std::printf("%s: %s\n", gflags::ProgramInvocationShortName(), usage);
  std::vector<gflags::CommandLineFlagInfo> flags;
  gflags::GetAllFlags(&flags);
  bool first = true;
  for (const gflags::CommandLineFlagInfo& flag : flags) {
    if (flag.filename != flags_file) continue;
    if (first) std::printf("\nFlags:\n");
    first = false;
    const char* quote = flag.type == "string" ? "\"" : "";
    std::printf("  --%s: %s (default: %s%s%s)\n", flag.name.c_str(),
                flag.description.c_str(), quote, flag.default_value.c_str(),
                quote);
  }
  std::exit(0);
}

}  // namespace morvane::ap
