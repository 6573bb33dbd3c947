#pragma once

#include <CLI/CLI.hpp>

/// The families of bxadm's commands, each in a file of its own.
namespace bxm::admin {

void addManagerCommands(CLI::App& program); ///< manager create, list, show, ...
void addQueueCommands(CLI::App& program);   ///< queue create, list, show, ...
void addMessageCommands(CLI::App& program); ///< browse, move
void addExportCommands(CLI::App& program);  ///< export, import
void addTopCommand(CLI::App& program);
void addServeCommand(CLI::App& program);
void addMaintenanceCommands(CLI::App& program);   ///< check, repair, backup, restore
void addCommandServerCommands(CLI::App& program); ///< command-server start, stop, status

/// All of a program that switches a manager's command server.
int switchCommandServerBy(const char* program, bool on, int count, char** values);

} // namespace bxm::admin
