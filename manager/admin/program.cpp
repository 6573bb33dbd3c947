#include "manager/admin/program.h"

#include "manager/admin/report.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <limits>
#include <unistd.h>

namespace bxm::admin {

namespace {

/// The command that the words led to, however far that was.
const CLI::App& innermost(const CLI::App& program) {
  const CLI::App* command = &program;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return *command;
}

std::string wordsOf(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return parent ? wordsOf(*parent) + " " + command.get_name() : command.get_name();
}

std::string choicesOf(const CLI::App& command) {
  std::string choices;
  for (const CLI::App* choice :
       command.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); }))
    choices += (choices.empty() ? " " : "|") + choice->get_name();
  return choices;
}

/// In one line: the words that would be right.
std::string usageOf(const CLI::App& command) {
  std::string options, words;
  bool others = false;
  for (const CLI::Option* option : command.get_options()) {
    const std::string name = option->get_name();
    if (option->get_positional())
      words += option->get_required() ? " " + name : " [" + name + "]";
    else if (option->get_required())
      options += " " + name + " " + option->get_type_name();
    else
      others = true;
  }
  return wordsOf(command) + (others ? " [OPTIONS]" : "") + options + words + choicesOf(command);
}

} // namespace

CLI::Option* addWord(CLI::App& command, const std::string& kind, std::string& word,
                     const std::string& what, bool isOptional) {
  CLI::Option* option = command.add_option(kind, word, what);
  option->type_name("");
  return isOptional ? option : option->required();
}

void addManagerOption(CLI::App& command, std::string& manager) {
  command.add_option("-m,--manager", manager, "Another queue manager than the default one")
      ->type_name("MANAGER");
}

CLI::Option* addCount(CLI::App& command, const std::string& name, std::uint64_t& count,
                      const std::string& what) {
  return command.add_option(name, count, what)
      ->type_name("COUNT")
      ->transform(decimal<std::uint64_t>(0, std::numeric_limits<std::uint64_t>::max()));
}

CLI::Option* addChoice(CLI::App& command, const std::string& name,
                       const std::vector<std::string>& choices, std::string& choice,
                       const std::string& what) {
  return command.add_option(name, choice, what)
      ->type_name(CLI::detail::join(choices, "|"))
      ->check(CLI::IsMember(choices).description(""));
}

void addJsonFlag(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print JSON, for programs");
}

void addForceFlag(CLI::App& command, bool& force) {
  command.add_flag("--force", force, "Do not ask");
}

int runProgram(CLI::App& program, int count, char** values) {
  std::signal(SIGXFSZ, SIG_IGN); // a file at its limit is an error like a full disk
  const std::string name = program.get_name();
  int status = 0;
  try {
    program.parse(count, values);
  } catch (const CLI::RuntimeError& ended) {
    status = ended.get_exit_code();
  } catch (const CLI::Success& wanted) { // help, or the version
    program.exit(wanted);
  } catch (const CLI::Error& error) {
    const CLI::App& command = innermost(program);
    const auto unknown = command.remaining();
    const bool isUnknown = !unknown.empty() && !command.get_subcommands({}).empty();
    std::fprintf(
        stderr, "%s: %s; usage: %s\n", wordsOf(command).c_str(),
        printable(isUnknown ? "there is no command " + unknown.front() : error.what()).c_str(),
        usageOf(command).c_str());
    return 2;
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", name.c_str(), printable(error.what()).c_str());
    return 1;
  }
  std::cout.flush();
  if (std::fflush(stdout) == 0 && !std::ferror(stdout) && std::cout) return status;
  std::fprintf(stderr, "%s: cannot write to standard output\n", name.c_str());
  return 1;
}

void expectAnswer(bool force) {
  if (!force && (::isatty(STDIN_FILENO) == 0 || ::isatty(STDERR_FILENO) == 0))
    throw CLI::ValidationError("--force is needed where nobody can be asked");
}

void expectConfirmed(const std::string& question) {
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  std::string answer;
  if (!std::getline(std::cin, answer)) std::fputc('\n', stderr);
  if (answer != "y" && answer != "Y" && answer != "yes")
    throw std::runtime_error("not confirmed; nothing was done");
}

} // namespace bxm::admin
