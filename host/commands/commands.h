// The subcommands of csrt-track. Each adds itself to the program and, when chosen, does its work and sets `status`;
// a failure is thrown as HostError.
#pragma once

namespace CLI {
class App;
}

namespace host {

/// Each adds its command with its options to the program. @param status  exit status, set when the command has run
void addTrackCommand(CLI::App& app, int& status);
void addConfigCommand(CLI::App& app, int& status);
void addDoctorCommand(CLI::App& app, int& status);
void addGridCommand(CLI::App& app, int& status);
void addDrawSceneCommand(CLI::App& app, int& status);
void addSimulateCommand(CLI::App& app, int& status);
void addServeCommand(CLI::App& app, int& status);
void addStatusCommand(CLI::App& app, int& status);
void addReplayCommand(CLI::App& app, int& status);
void addSchemaCommand(CLI::App& app, int& status);
void addEvaluateCommand(CLI::App& app, int& status);
void addTuneCommand(CLI::App& app, int& status);
void addCompareCommand(CLI::App& app, int& status);
void addMergeCommand(CLI::App& app, int& status);

}  // namespace host
