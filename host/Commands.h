// vantrel.exe's commands. Each parses its own arguments (argv[2..]) and returns how it ended;
// main prints the failure in words and exits with the outcome's code.
#pragma once

#include <string>
#include <vector>

#include "CommandLine.h"
#include "Outcome.h"

namespace vantrel::host {

Outcome Share(int argc, char** argv);
Outcome View(int argc, char** argv);
Outcome Play(int argc, char** argv);
Outcome Publish(int argc, char** argv);
Outcome SessionView(int argc, char** argv);
Outcome Info(int argc, char** argv);
Outcome Snapshot(int argc, char** argv);
Outcome Repair(int argc, char** argv);

// Parses a command's arguments with its own options followed by the shared tables; a usage
// outcome when they do not fit.
Outcome ParseCommand(int argc, char** argv, std::vector<OptionRule> table,
                     const std::vector<std::vector<OptionRule>>& shared, size_t minPositional,
                     size_t maxPositional, Args* args);

// Why the reader refused a lesson file, in words and with the matching exit code: missing or
// locked (a recorder is writing it), never closed (run repair), not a lesson or damaged.
Outcome ExplainLesson(const std::string& path);

}  // namespace vantrel::host
