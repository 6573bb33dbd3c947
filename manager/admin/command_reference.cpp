#include "manager/admin/command_reference.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

namespace bxm::admin {

namespace {

using Options = std::vector<const CLI::Option*>;
using Apps = std::vector<const CLI::App*>;

Apps commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) {
    return !command->get_name().empty() && !command->get_group().empty();
  });
}

Options positionalsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) {
    return option->get_positional() && !option->get_group().empty();
  });
}

Options optionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) {
    return option->nonpositional() && !option->get_group().empty();
  });
}

/// Those with a dash that may stand behind a command.
Options optionsBehind(const CLI::App& app) {
  Options options = optionsOf(app);
  if (app.get_fallthrough() && app.get_parent())
    for (const CLI::Option* option : optionsBehind(*app.get_parent()))
      if (option != app.get_parent()->get_help_ptr()) options.push_back(option);
  return options;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }

std::string joined(const std::vector<std::string>& words, const std::string& between) {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : between) + word;
  return all;
}

/// What an option's value is called; a word that a command takes by its place may have no other
/// name than its kind.
std::string typeOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  if (type.empty() && option.get_positional()) return option.get_name(true);
  return type.substr(0, type.find_first_of(": "));
}

/// A set's members, with bars between them; empty where there is none.
std::string membersOf(const CLI::Option& option) {
  const std::string type = typeOf(option);
  return type.find('|') == std::string::npos ? "" : type;
}

/// What a shell completes for a value.
std::string kindOf(const CLI::Option& option) {
  const std::string type = typeOf(option);
  for (const char* kind : {"MANAGER", "QUEUE", "FILE", "FOLDER"})
    if (type == kind) return kind;
  return membersOf(option).empty() ? "NONE" : type;
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

template <typename Act>
void forEachCommand(const CLI::App& app, const std::string& path, Act act) {
  act(app, path);
  for (const CLI::App* command : commandsOf(app))
    forEachCommand(*command, path + " " + command->get_name(), act);
}

// ---- mdoc

/// A word behind a macro: a short one might be a macro itself, and a dot is punctuation.
std::string argument(const std::string& word) { return (word.size() < 4 ? "\\&" : "") + word; }

std::string text(const std::string& plain) {
  std::string lines;
  for (const char c : plain) {
    if (lines.empty() || lines.back() == '\n') lines += c == '.' || c == '\'' ? "\\&" : "";
    lines += c == '\\' ? "\\e" : std::string(1, c);
  }
  if (lines.find_last_of(".:!") != lines.size() - 1) lines += '.';
  return lines + '\n';
}

std::string valueOf(const CLI::Option& option) {
  std::string members = membersOf(option);
  if (members.empty()) return " Ar " + argument(typeOf(option));
  for (auto at = members.find('|'); at != std::string::npos; at = members.find('|', at + 3))
    members.replace(at, 1, " | ");
  return " Cm " + members;
}

std::string synopsisOf(const CLI::Option& option) {
  if (option.get_positional()) return " Ar " + argument(option.get_name(true));
  return " Fl " + namesOf(option).front().substr(1) + (takesValue(option) ? valueOf(option) : "");
}

/// What stands behind a command, in the order of a synopsis.
Options argumentsOf(const CLI::App& app) {
  Options all = positionalsOf(app);
  for (const CLI::Option* option : optionsOf(app))
    if (option != app.get_help_ptr()) all.push_back(option);
  return all;
}

void writeHead(const CLI::App& app, const std::string& path, std::ostream& out) {
  out << ".It Cm " << path;
  for (const CLI::Option* option : argumentsOf(app))
    out << (option->get_required() ? "" : " Oo") << synopsisOf(*option)
        << (option->get_required() ? "" : " Oc");
  out << '\n';
}

std::string describe(const CLI::Option& option) {
  const std::string usual = option.get_default_str();
  return option.get_description() + (usual.empty() ? "" : "; " + usual + " unless told otherwise");
}

void writeOption(const CLI::Option& option, std::ostream& out) {
  std::vector<std::string> names;
  for (const std::string& name : namesOf(option)) names.push_back("Fl " + name.substr(1));
  if (names.empty())
    out << ".It" << synopsisOf(option) << '\n';
  else
    out << ".It " << joined(names, " , ") << (takesValue(option) ? valueOf(option) : "") << '\n';
  out << text(describe(option));
}

/// By what is told of them, the options with the commands that have them.
using Uses = std::map<std::string, std::vector<const CLI::Option*>>;

std::string tellingOf(const CLI::Option& option) {
  return joined(namesOf(option), " ") + ' ' + describe(option);
}

Uses usesIn(const CLI::App& program) {
  Uses uses;
  forEachCommand(program, "", [&](const CLI::App& app, const std::string&) {
    for (const CLI::Option* option : optionsOf(app))
      if (option != app.get_help_ptr()) uses[tellingOf(*option)].push_back(option);
  });
  return uses;
}

/// What many commands have is told once, at the end.
bool isCommon(const std::vector<const CLI::Option*>& uses) { return uses.size() > 2; }

void writeCommand(const CLI::App& app, const std::string& path, const Uses& uses,
                  std::ostream& out) {
  writeHead(app, path, out);
  out << text(app.get_description());
  if (!app.get_footer().empty()) out << ".Pp\n" << text(app.get_footer());
  Options options = argumentsOf(app);
  std::erase_if(options, [&uses](const CLI::Option* option) {
    const auto its = uses.find(tellingOf(*option));
    return option->get_description().empty() || (its != uses.end() && isCommon(its->second));
  });
  if (options.empty()) return;
  out << ".Bl -tag -width Ds\n";
  for (const CLI::Option* option : options) writeOption(*option, out);
  out << ".El\n";
}

// ---- Shells

std::string shellWord(const std::string& text) {
  std::string all = "'";
  for (const char c : text) all += c == '\'' ? "'\\''" : std::string(1, c);
  return all + "'";
}

/// A piece of what zsh's _arguments is told about an option.
std::string escaped(const std::string& text) {
  std::string all;
  for (const char c : text)
    all += (std::string("[]:\\").find(c) < 4 ? "\\" : "") + std::string(1, c);
  return all;
}

std::string action(const CLI::Option& option) {
  std::string kind = kindOf(option);
  if (kind == "NONE") return " ";
  if (membersOf(option).empty()) return "_bxm_" + kind;
  std::replace(kind.begin(), kind.end(), '|', ' ');
  return "(" + kind + ")";
}

void writeZshOption(const CLI::Option& option, std::ostream& out) {
  const std::vector<std::string> names = namesOf(option);
  for (const std::string& name : names) {
    std::string spec = "(" + joined(names, " ") + ")" + name;
    if (takesValue(option) && name.starts_with("--")) spec += '=';
    spec += "[" + escaped(firstLine(option.get_description())) + "]";
    if (takesValue(option)) spec += ":" + escaped(typeOf(option)) + ":" + action(option);
    out << " \\\n    " << shellWord(spec);
  }
}

void writeZshCommand(const CLI::App& app, const std::string& path, std::ostream& out) {
  std::string function = "_" + path;
  std::replace(function.begin(), function.end(), ' ', '_');
  const Apps commands = commandsOf(app);
  out << function << "() {\n";
  if (!commands.empty()) out << "  local curcontext=$curcontext state line\n  local -A opt_args\n";
  out << "  _arguments" << (commands.empty() ? "" : " -C");
  for (const CLI::Option* option : optionsBehind(app)) writeZshOption(*option, out);
  for (const CLI::Option* option : positionalsOf(app))
    out << " \\\n    "
        << shellWord((option->get_required() ? ":" : "::") + escaped(option->get_name(true)) + ":" +
                     action(*option));
  if (!commands.empty()) {
    out << " \\\n    '1: :->command' '*:: :->argument'\n  case $state in\n  command)\n"
           "    local -a commands=(";
    for (const CLI::App* command : commands)
      out << "\n      "
          << shellWord(command->get_name() + ":" + firstLine(command->get_description()));
    out << ")\n    _describe command commands ;;\n  argument)\n    (( $+functions[" << function
        << "_$line[1]] )) && " << function << "_$line[1] ;;\n  esac";
  }
  out << "\n}\n";
}

void writeManual(const CLI::App& program, std::ostream& out) {
  const std::string& name = program.get_name();
  const Uses uses = usesIn(program);
  const auto isFamily = [](const CLI::App* command) { return !commandsOf(*command).empty(); };
  const auto writeAll = [&](const CLI::App& app, const std::string& path) {
    if (!isFamily(&app)) writeCommand(app, path, uses, out);
  };
  Apps families = commandsOf(program);
  const auto others = std::stable_partition(families.begin(), families.end(), isFamily);
  std::for_each(families.begin(), others, [&](const CLI::App* family) {
    out << ".Ss " << name << ' ' << family->get_name() << '\n'
        << text(family->get_description()) << ".Bl -tag -width Ds\n";
    forEachCommand(*family, family->get_name(), writeAll);
    out << ".El\n";
  });
  out << ".Ss Other commands\n.Bl -tag -width Ds\n";
  std::for_each(others, families.end(),
                [&](const CLI::App* command) { writeAll(*command, command->get_name()); });
  out << ".El\n.Ss Options\n.Bl -tag -width Ds\n";
  for (const auto& [telling, options] : uses)
    if (isCommon(options)) writeOption(*options.front(), out);
  for (const CLI::Option* option : optionsOf(program)) writeOption(*option, out);
  out << ".El\n";
}

void writeBashCompletion(const CLI::App& program, std::ostream& out) {
  std::string words, options, values, positionals;
  forEachCommand(program, program.get_name(), [&](const CLI::App& app, const std::string& path) {
    const std::string key = "\n    ['" + path + " ']='";
    std::vector<std::string> commands, names, kinds;
    for (const CLI::App* command : commandsOf(app)) commands.push_back(command->get_name());
    for (const CLI::Option* option : optionsBehind(app)) {
      names.push_back(joined(namesOf(*option), "|"));
      for (const std::string& name : namesOf(*option))
        if (takesValue(*option))
          values += "\n    ['" + path + " " + name + "']='" + kindOf(*option) + "'";
    }
    for (const CLI::Option* option : positionalsOf(app)) kinds.push_back(kindOf(*option));
    if (!commands.empty()) words += key + joined(commands, " ") + "'";
    if (!names.empty()) options += key + joined(names, " ") + "'";
    if (!kinds.empty()) positionals += key + joined(kinds, " ") + "'";
  });
  const std::string& name = program.get_name();
  out << "_" << name << "() {\n  local -A after=()\n  local -A words=(" << words
      << ")\n  local -A options=(" << options << ")\n  local -A values=(" << values
      << ")\n  local -A positionals=(" << positionals << ")\n  _bxm_complete " << name
      << "\n}\ncomplete -F _" << name << ' ' << name << '\n';
}

void writeZshCompletion(const CLI::App& program, std::ostream& out) {
  forEachCommand(program, program.get_name(), [&](const CLI::App& app, const std::string& path) {
    writeZshCommand(app, path, out);
  });
  out << "_" << program.get_name() << " \"$@\"\n";
}

} // namespace

void addReferenceCommand(CLI::App& program) {
  CLI::App* command = program.add_subcommand("reference")->group("");
  const auto what = std::make_shared<std::string>();
  command->add_option("WHAT", *what)->required()->check(CLI::IsMember({"man", "bash", "zsh"}));
  command->final_callback([&program, what] {
    if (*what == "man") writeManual(program, std::cout);
    if (*what == "bash") writeBashCompletion(program, std::cout);
    if (*what == "zsh") writeZshCompletion(program, std::cout);
  });
}

} // namespace bxm::admin
