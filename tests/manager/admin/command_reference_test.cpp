#include "manager/admin/command_reference.h"
#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// A program with one command of each kind.
class Reference : public testing::Test {
protected:
  Reference() {
    bxm::admin::addReferenceCommand(program);
    program.add_option("--secret", text)->group("");
    CLI::App* family = program.add_subcommand("queue", "Queues, 'all' of them");
    CLI::App* alter = family->add_subcommand("alter", "Changes: [one]");
    alter->add_option("QUEUE", text, ".dotted")->type_name("")->required();
    alter->add_option("-m,--manager", text, "Its manager")->type_name("MANAGER");
    alter->add_option("--sync", text, "How")->type_name("full|batch")->required();
    program.add_subcommand("check", "Looks");
  }

  std::string reference(const std::string& what) {
    testing::internal::CaptureStdout();
    program.parse("reference " + what);
    std::cout.flush();
    return testing::internal::GetCapturedStdout();
  }
  std::string offered(const std::string& line) {
    const std::string common = FERRY_SOURCE "/docs/completion/common.bash";
    return support::Process({"/bin/bash", "-c",
                             ". " + common + "\n_bxm_ask() { echo \"$@\"; }\n" + reference("bash") +
                                 "COMP_WORDS=(" + line +
                                 ")\nCOMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n_prog\n"
                                 "IFS=,; echo \"${COMPREPLY[*]}\""})
        .run()
        .out;
  }

  CLI::App program{"Does it all", "prog"};
  std::string text;
};

TEST_F(Reference, TheManualHasWhatIsNotHidden) {
  EXPECT_THAT(reference("man"),
              AllOf(HasSubstr(".It Cm queue alter Ar QUEUE Oo Fl m Ar MANAGER Oc Fl -sync Cm full "
                              "| batch\nChanges: [one].\n"),
                    HasSubstr(".It Fl m , Fl -manager Ar MANAGER\nIts manager.\n"),
                    HasSubstr("\n\\&.dotted.\n"), HasSubstr(".It Cm check\n"),
                    Not(HasSubstr("reference")), Not(HasSubstr("secret"))));
}

TEST_F(Reference, BashCompletesByKind) {
  for (const auto& [line, words] : std::map<std::string, std::string>{
           {"prog ''", "queue,check"},
           {"prog queue al", "alter"},
           {"prog queue alter --sync b", "batch"},
           {"prog queue alter --sync full -m OTHER ''", "queue list -m OTHER"},
           {"prog queue alter Q --manager ''", "manager list"},
           {"prog queue alter Q --sync full --s", ""},
           {"prog queue alter --manager = X ''", "queue list -m X"},
           {"prog queue alter Q --manager =", "manager list"},
           {"prog queue alter Q -m X --m", ""},
           {"prog queue alter Q -m X --s", "--sync"}})
    EXPECT_EQ(offered(line), words + "\n") << line;
}

TEST_F(Reference, ZshTakesWhatItIsTold) {
  EXPECT_THAT(reference("zsh"), AllOf(HasSubstr("'queue:Queues, '\\''all'\\'' of them'"),
                                      HasSubstr("'(--sync)--sync=[How]:full|batch:(full batch)'"),
                                      HasSubstr("':QUEUE:_bxm_QUEUE'")));
}

} // namespace
