#include "ferry/driver/options.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>

// Run by the build: writes what is told of the tool's options elsewhere than in its usage.

namespace {

std::string Flag_s(const COption& obOption) { return std::string("-") + obOption.cLetter; }

bool IsShown_b(const COption& obOption) { return obOption.pText != nullptr; }

// What a shell completes for a value: docs/completion knows these kinds.
std::string Kind_s(const COption& obOption) {
  const std::string sValue = obOption.pValue;
  if (sValue == "qname") return "QUEUE";
  if (sValue == "manager") return "MANAGER";
  return sValue == "configsection" ? "SECTION" : "NONE";
}

std::string Flags_s(const COption& obOperation) {
  std::string sFlags;
  for (const COption* pModifier : Modifiers_a(obOperation)) sFlags += Flag_s(*pModifier) + ' ';
  return sFlags;
}

// ---- The manual page: a text in which lines "@synopsis@" and "@option f@" stand for what is known
// here. Each option has its place in it once.

void Synopsis_v() {
  for (const COption& obOption : Options_a()) {
    if (!obOption.pModifiers) continue;
    std::printf(".Nm\n.Fl %c Ar %s\n", obOption.cLetter, obOption.pValue);
    for (const COption* pModifier : Modifiers_a(obOption))
      std::printf(".Op Fl %c Ar %s\n", pModifier->cLetter, pModifier->pValue);
  }
}

void Item_v(const COption& obOption) {
  std::printf(".It Fl %c", obOption.cLetter);
  if (obOption.pValue) std::printf(" Ar %s", obOption.pValue);
  std::printf("\n");
  if (!IsShown_b(obOption)) return;
  const std::string sText = obOption.pText;
  std::printf("%s%s\n", sText.c_str(), sText.ends_with('.') ? "" : ".");
}

bool ManualPage_b(std::istream& obTemplate) {
  std::set<std::string> aLeft;
  for (const COption& obOption : Options_a()) aLeft.insert(Flag_s(obOption));
  for (std::string sLine; std::getline(obTemplate, sLine);) {
    if (sLine == "@synopsis@")
      Synopsis_v();
    else if (!sLine.starts_with("@option "))
      std::printf("%s\n", sLine.c_str());
    else
      for (const COption& obOption : Options_a())
        if (sLine == std::string("@option ") + obOption.cLetter + '@' &&
            aLeft.erase(Flag_s(obOption)) == 1)
          Item_v(obOption);
  }
  for (const std::string& sFlag : aLeft)
    std::cerr << "The manual page lacks the option " << sFlag << ".\n";
  return aLeft.empty();
}

// ---- Completions: data for the functions of docs/completion

void Bash_v() {
  std::string sOffered, sKinds, sAfter;
  for (const COption& obOption : Options_a()) {
    if (IsShown_b(obOption)) sOffered += Flag_s(obOption) + ' ';
    if (obOption.pValue) sKinds += "['ferry " + Flag_s(obOption) + "']=" + Kind_s(obOption) + ' ';
    if (obOption.pModifiers) sAfter += "[" + Flag_s(obOption) + "]='" + Flags_s(obOption) + "' ";
  }
  std::printf("_ferry() {\n"
              "  local -A options=(['ferry ']='%s')\n"
              "  local -A values=(%s)\n"
              "  local -A after=(%s)\n"
              "  local -A words=() positionals=()\n"
              "  _bxm_complete ferry\n"
              "}\n"
              "complete -F _ferry ferry\n",
              sOffered.c_str(), sKinds.c_str(), sAfter.c_str());
}

// What an operation excludes: the other ones, and the modifiers that do not go with it.
std::string Excluded_s(const COption& obOperation) {
  const std::string sTaken = ' ' + Flags_s(obOperation);
  std::string sExcluded;
  for (const COption& obOther : Options_a())
    if (IsShown_b(obOther) && sTaken.find(' ' + Flag_s(obOther) + ' ') == std::string::npos)
      sExcluded += Flag_s(obOther) + ' ';
  return sExcluded;
}

void Zsh_v() {
  std::printf("_ferry() {\n  _arguments");
  for (const COption& obOption : Options_a()) {
    if (!IsShown_b(obOption)) continue;
    const std::string sExcluded =
        obOption.pModifiers ? Excluded_s(obOption) : Flag_s(obOption) + ' ';
    const std::string sKind = Kind_s(obOption);
    std::printf(" \\\n    '(%s)%s[%s]:%s:%s'", sExcluded.c_str(), Flag_s(obOption).c_str(),
                obOption.pText, obOption.pValue, sKind == "NONE" ? " " : ("_bxm_" + sKind).c_str());
  }
  std::printf("\n}\n_ferry \"$@\"\n");
}

} // namespace

int main(int nCount, char** aArguments) {
  const std::string sWhat = nCount > 1 ? aArguments[1] : "";
  if (sWhat == "bash") return Bash_v(), 0;
  if (sWhat == "zsh") return Zsh_v(), 0;
  std::ifstream obTemplate(nCount > 2 ? aArguments[2] : "");
  return sWhat == "man" && obTemplate && ManualPage_b(obTemplate) ? 0 : 1;
}
