#pragma once

#include <CLI/CLI.hpp>

namespace bxm::admin {

/// Adds a hidden command, "reference man|bash|zsh", by which the build writes what is told of the
/// program's commands elsewhere than in their help: a section of its manual page in mdoc(7), and
/// what docs/completion needs to know, to stand behind its common.bash or common.zsh.
///
/// Hidden commands and options are left out. The type of an option, or the name of a word without
/// one, tells what a shell completes: MANAGER, QUEUE (of the manager that -m names), FILE, FOLDER,
/// or words with bars between them.
void addReferenceCommand(CLI::App& program);

} // namespace bxm::admin
