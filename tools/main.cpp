// tmbaudio: look at the audio devices of this user, and play on them.

#include <cstdio>
#include <exception>

#include "tools/Commands.h"

namespace {

using namespace tembra::tools;

int Run(int argc, char** argv) {
  CLI::App program{"Plays on and looks at the audio devices of this user.", "tmbaudio"};
  program.require_subcommand(1);
  program.set_version_flag("--version", TEMBRA_VERSION);
  program.footer("Exit status: 0 ok, 1 failed, 2 usage, 3 no server, 4 held by another process.");
  AddPlayCommand(program);
  AddHelloCommand(program);
  AddInspectCommands(program);
  AddControlsCommand(program);
  AddVolumeCommands(program);
  AddFormatsCommand(program);
  AddHogCommand(program);
  AddDefaultCommand(program);
  AddTelemetryCommands(program);
  try {
    program.parse(argc, argv);
    return static_cast<int>(Exit::kOk);
  } catch (const CLI::RuntimeError& error) {
    // The status of a command that ran under this one.
    return error.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? static_cast<int>(Exit::kOk) : static_cast<int>(Exit::kUsage);
  } catch (const Failure& failure) {
    std::fprintf(stderr, "tmbaudio: %s\n", failure.what());
    return static_cast<int>(failure.Code());
  }
}

// Output that did not get where it should is a failure: a full disk must not read as success.
int AfterOutput(int inStatus) {
  const bool isWritten = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (isWritten || inStatus != static_cast<int>(Exit::kOk)) return inStatus;
  std::fputs("tmbaudio: standard output cannot be written\n", stderr);
  return static_cast<int>(Exit::kFailed);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return AfterOutput(Run(argc, argv));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tmbaudio: %s\n", error.what());
    return static_cast<int>(Exit::kFailed);
  }
}
