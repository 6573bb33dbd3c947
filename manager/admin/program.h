#pragma once

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

/// What the operator's programs share: how commands are declared, and how a program ends.
namespace bxm::admin {

/// Declares a command whose options declare binds, and which run carries out with them: its result
/// is the exit status.
template <typename Options>
CLI::App& addCommand(CLI::App& parent, const std::string& name, const std::string& does,
                     void (*declare)(CLI::App&, Options&), int (*run)(const Options&)) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = parent.add_subcommand(name, does);
  declare(*command, *options);
  command->final_callback([options, run] {
    if (const int status = run(*options)) throw CLI::RuntimeError(status);
  });
  return *command;
}

/// A word that a command takes by its place. What it names is told by its kind (MANAGER, QUEUE,
/// FILE, ...), by which shells complete it.
CLI::Option* addWord(CLI::App& command, const std::string& kind, std::string& word,
                     const std::string& what, bool isOptional = false);
/// -m: the manager that a command is about; without it the default one.
void addManagerOption(CLI::App& command, std::string& manager);
/// A number in decimal: the library alone would take octal and hexadecimal ones, and no digit at
/// all.
template <typename Number>
CLI::Validator decimal(Number least, Number most) {
  return {[=](std::string& text) {
            Number number{};
            const char* const last = text.data() + text.size();
            const auto [end, fault] = std::from_chars(text.data(), last, number);
            if (fault != std::errc() || end != last || !(number >= least && number <= most)) // nan
              return fmt::format("'{}' is no number from {} to {}", text, least, most);
            text = fmt::format("{}", number); // without zeros before it
            return std::string();
          },
          ""};
}
/// An option that takes how many of something.
CLI::Option* addCount(CLI::App& command, const std::string& name, std::uint64_t& count,
                      const std::string& what);
/// An option that takes one of some words.
CLI::Option* addChoice(CLI::App& command, const std::string& name,
                       const std::vector<std::string>& choices, std::string& choice,
                       const std::string& what);
void addJsonFlag(CLI::App& command, bool& json);
void addForceFlag(CLI::App& command, bool& force);

/// Carries out a command line: status 0, 1 for a failure, 2 for wrong words, each told in one line
/// on standard error.
int runProgram(CLI::App& program, int count, char** values);

/// Before something is destroyed without force: throws CLI::ValidationError where nobody can be
/// asked.
void expectAnswer(bool force);
/// Throws where the answer is not that it is to go on.
void expectConfirmed(const std::string& question);

} // namespace bxm::admin
