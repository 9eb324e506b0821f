#pragma once

#include <CLI/CLI.hpp>

#include "tools/Exit.h"

namespace tembra::tools {

// Each adds its subcommands to the program. A subcommand's callback runs it and throws Failure.
void AddInspectCommands(CLI::App& ioProgram);
void AddControlsCommand(CLI::App& ioProgram);
void AddVolumeCommands(CLI::App& ioProgram);
void AddFormatsCommand(CLI::App& ioProgram);
void AddHogCommand(CLI::App& ioProgram);
void AddDefaultCommand(CLI::App& ioProgram);
void AddPlayCommand(CLI::App& ioProgram);
void AddHelloCommand(CLI::App& ioProgram);
void AddTelemetryCommands(CLI::App& ioProgram);

}  // namespace tembra::tools
