// The completion of the command line: what the program tells, held against its help, and bash(1) that uses it, a real
// one on a terminal of its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>

#include "tests/support/childprocess.h"
#include "tests/support/pseudoterminal.h"
#include "tests/support/temporaryfile.h"
#include "tools/bus.h"
#include "tools/framewords.h"

namespace {

using Words = std::vector<std::string>;

const char* const readline_breaks = " \t\n\"'@><=;|&(:";

Words lines_of(const std::string& text) {
    Words lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What the program tells about a line that is being typed.
Words told(const std::string& line) {
    const ChildResult result = run_program({NODEVIK, "__complete", line, readline_breaks});
    EXPECT_EQ(result.err, "") << line;
    EXPECT_EQ(result.status, 0) << line;
    return lines_of(result.out);
}

Words sorted(Words words) {
    std::sort(words.begin(), words.end());
    return words;
}

bool has(const Words& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string help_of(const std::string& command) {
    std::istringstream stream(command);
    Words words{NODEVIK};
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    words.emplace_back("--help");
    return run_program(words).out;
}

// The first words of the lines below a heading of a help.
Words listed(const std::string& help, const std::string& heading) {
    Words found;
    bool below = false;
    for (const std::string& line : lines_of(help)) {
        if (line.empty() || line.front() != ' ') {
            below = line == heading;
        } else if (below && line.rfind("   ", 0) != 0) {
            std::istringstream stream(line);
            std::string word;
            stream >> word;
            found.push_back(word);
        }
    }
    return found;
}

// The options that a help tells, such as "--type".
Words options_in(const std::string& help) {
    Words found;
    for (const std::string& names : listed(help, "Options:")) {
        found.push_back(names.substr(names.find("--")));
    }
    return found;
}

// Calls `look` for every command, "" and "sdo" and "sdo read", with its help.
void for_every_command(const std::function<void(const std::string&, const std::string&)>& look,
                       const std::string& command = "") {
    const std::string help = help_of(command);
    look(command, help);
    for (const std::string& name : listed(help, "Subcommands:")) {
        for_every_command(look, command + (command.empty() ? "" : " ") + name);
    }
}

// A bash with the completion loaded, on a terminal. Its command nodevik keeps the words that it is run with.
class Shell {
public:
    Shell() {
        settings_.write(
            "PS1='ready> '\nHISTFILE=\nPATH=" + std::filesystem::path(NODEVIK).parent_path().string() +
            ":$PATH\n"
            "nodevik() {\n"
            "    if [ \"$1\" = __complete ]; then command nodevik \"$@\"; return; fi\n"
            "    printf '<%s>' \"$@\" >'" +
            kept_.path() + "'\n}\nsource '" COMPLETION "'\n");
        child_ = fork();
        if (child_ == 0) {
            become_bash();
        }
        wait_for_prompt();
    }
    ~Shell() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    // Types keys and Enter; the words that nodevik was run with, "<sdo><read>".
    std::string run(const std::string& keys) {
        kept_.write("");
        terminal_.send(keys + "\r");
        wait_for_prompt();
        return kept_.content();
    }

private:
    [[noreturn]] void become_bash() const {
        setsid();
        const int near_end = open(terminal_.path().c_str(), O_RDWR);
        for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            dup2(near_end, descriptor);
        }
        setenv("TERM", "dumb", 1);
        setenv("INPUTRC", "/dev/null", 1);
        execlp("bash", "bash", "--noprofile", "--rcfile", settings_.path().c_str(), "-i", nullptr);
        _exit(99);
    }

    void wait_for_prompt() {
        std::string seen;
        while (seen.find("ready> ") == std::string::npos || !seen.ends_with("ready> ")) {
            const std::string more = terminal_.receive(1, 60000);
            ASSERT_FALSE(more.empty()) << seen;
            seen += more;
        }
    }

    PseudoTerminal terminal_;
    TemporaryFile settings_;
    TemporaryFile kept_;
    pid_t child_ = -1;
};

const std::string tab = "\t";
const std::string all = "\033*";  // every candidate

}  // namespace

TEST(Completion, KnowsEveryCommandThatAHelpTells) {
    int commands = 0;
    for_every_command([&commands](const std::string& command, const std::string& help) {
        Words wanted = listed(help, "Subcommands:");
        commands += static_cast<int>(wanted.size());
        if (!wanted.empty()) {
            wanted.insert(wanted.begin(), "words");
            EXPECT_EQ(told("nodevik " + command + (command.empty() ? "" : " ")), wanted);
        }
    });
    EXPECT_GE(commands, 16);
}

TEST(Completion, KnowsEveryOptionThatAHelpTells) {
    const Words common = options_in(help_of(""));
    EXPECT_TRUE(has(common, "--can"));
    for_every_command([&common](const std::string& command, const std::string& help) {
        Words wanted = options_in(help);
        EXPECT_TRUE(has(wanted, "--help")) << command;
        for (const std::string& option : common) {
            if (!has(wanted, option)) {
                wanted.push_back(option);  // taken behind every command
            }
        }
        wanted.insert(wanted.begin(), "words");
        EXPECT_EQ(sorted(told("nodevik " + command + " --")), sorted(wanted)) << command;
    });
}

TEST(Completion, KnowsEveryOptionForAFile) {
    int files = 0;
    for_every_command([&files](const std::string& command, const std::string& help) {
        const std::regex option(R"(^  (?:-\w,)?(--[\w-]+) \S*FILE)");
        for (const std::string& line : lines_of(help)) {
            std::smatch found;
            if (std::regex_search(line, found, option)) {
                ++files;
                EXPECT_EQ(told("nodevik " + command + " " + found.str(1) + " some"),
                          (Words{"files", "some", ""}))
                    << line;
            }
        }
    });
    EXPECT_GE(files, 3);
}

TEST(Completion, KnowsTheArgumentsThatAreFiles) {
    EXPECT_EQ(told("nodevik record bus"), (Words{"files", "bus", ""}));
    EXPECT_EQ(told("nodevik decode --raw "), (Words{"files", "", ""}));
    EXPECT_EQ(told("nodevik eds check ./"), (Words{"files", "./", ""}));
    EXPECT_EQ(told("nodevik eds diff old.eds ne"), (Words{"files", "ne", ""}));
    EXPECT_EQ(told("nodevik --eds 5=pump"), (Words{"files", "pump", ""}));
    EXPECT_EQ(told("nodevik --eds=pump"), (Words{"files", "pump", ""}));
    EXPECT_EQ(told("nodevik --eds=5=a:b"), (Words{"files", "a:b", "a:"}));
    EXPECT_EQ(told("nodevik decode x=1"), (Words{"files", "x=1", "x="}));
    EXPECT_EQ(told("nodevik decode 'x=1"), (Words{"files", "x=1", ""}));
}

TEST(Completion, KnowsTheWordsOfAnArgument) {
    EXPECT_EQ(told("nodevik nmt reset-comm a"), (Words{"words", "all"}));
    EXPECT_EQ(told("nodevik pdo set 5 "), (Words{"words", "tpdo", "rpdo"}));
    EXPECT_EQ(told("nodevik pdo set 5 tpdo 1 "), Words{"words"});
    EXPECT_TRUE(
        has(told("nodevik --eds " EDS " pdo set 5 tpdo 1 0x185 255 0x6000:1 Read\\ in"), "Read input 8-bit"));
}

TEST(Completion, LeavesOutWhatMayNotBeGivenAnyMore) {
    const Words after_can = told("nodevik --can can0 --json --eds pump.eds --");
    for (const char* option : {"--can", "--udp", "--kvaser", "--json"}) {
        EXPECT_FALSE(has(after_can, option)) << option;
    }
    EXPECT_TRUE(has(after_can, "--eds"));  // may stand several times
    EXPECT_EQ(told("nodevik monitor --raw --st"), Words{"words"});
    EXPECT_EQ(told("nodevik monitor --st"), (Words{"words", "--statistics"}));
}

TEST(Completion, GoesOnWithOptionsWhenAllArgumentsAreThere) {
    EXPECT_TRUE(has(told("nodevik monitor "), "--filter"));
    EXPECT_TRUE(has(told("nodevik sdo read 5 0x1018 "), "--out"));
    EXPECT_EQ(told("nodevik sdo read 5 "), Words{"names"});  // no names without a description
    EXPECT_EQ(told("nodevik sdo write 5 0x1018 -- -"), Words{"words"});
}

TEST(Completion, KnowsInterfacesTypesAndKinds) {
    Words interfaces{"words"};
    for (const nodevik_tool::CanInterface& interface : nodevik_tool::can_interfaces()) {
        interfaces.push_back(interface.name);
    }
    EXPECT_EQ(told("nodevik --can "), interfaces);
    EXPECT_EQ(told("nodevik sdo read 5 0x1018 --type r"), (Words{"words", "r32", "r64"}));
    EXPECT_TRUE(has(told("nodevik sdo write 5 0x1018 --type "), "oct"));
    Words kinds = nodevik_tool::frame_kinds();
    kinds.insert(kinds.begin(), "words parts");
    EXPECT_EQ(told("nodevik monitor --filter "), kinds);
    EXPECT_EQ(told("nodevik monitor --filter emcy,hea"), (Words{"words parts", "emcy,heartbeat"}));
}

TEST(Completion, KnowsTheNodesThatADescriptionIsGivenFor) {
    EXPECT_EQ(told("nodevik --eds 5=a.eds --eds 16=b.eds --eds c.eds nmt start "),
              (Words{"words", "all", "5", "16"}));
    EXPECT_EQ(told("nodevik nmt start "), (Words{"words", "all"}));
}

TEST(Completion, KnowsTheObjectsOfADescription) {
    const std::string line = "nodevik --eds " EDS " sdo read 5 ";
    const Words names = told(line);
    EXPECT_EQ(names.front(), "names");
    EXPECT_TRUE(has(names, "Device type"));
    EXPECT_TRUE(has(names, "Identity object"));
    EXPECT_FALSE(has(names, "Identity object/Vendor-ID"));
    EXPECT_TRUE(has(told(line + "\"identity"), "Identity object/Vendor-ID"));
    EXPECT_TRUE(has(told(line + "Identity\\ ob"), "Identity object/Vendor-ID"));
    EXPECT_EQ(told(line + "'Identity object/V"), (Words{"names", "Identity object/Vendor-ID"}));
    EXPECT_EQ(told(line + "0x1017"), (Words{"names", "0x1017"}));
    EXPECT_EQ(told(line + "0x1018:"), (Words{"names", "0", "1", "2", "3", "4"}));
    EXPECT_EQ(told(line + "'0x1018:4"), (Words{"names", "0x1018:4"}));  // the shell cuts nothing in quotes
    EXPECT_EQ(told("nodevik eds show " EDS " 0x1017"), (Words{"names", "0x1017"}));
    EXPECT_EQ(told("nodevik eds dcf " EDS " 5 0x1017=500 0x1016:"),
              (Words{"names parts", "0=", "1=", "2=", "3=", "4="}));
}

TEST(Completion, TakesTheDescriptionOfTheNode) {
    const TemporaryFile other;
    other.write(
        "[ManufacturerObjects]\nSupportedObjects=1\n1=0x2000\n[2000]\nParameterName=Speed\nObjectType=7\n"
        "DataType=3\nAccessType=rw\n");
    const std::string line = "nodevik --eds 5=" + other.path() + " --eds " EDS " sdo read ";
    EXPECT_EQ(told(line + "5 "), (Words{"names", "Speed"}));
    EXPECT_EQ(told(line + "6 Sp"), Words{"names"});
    EXPECT_EQ(told("nodevik --eds /nowhere/pump.eds sdo read 5 "), Words{"names"});
}

TEST(BashCompletion, CompletesCommandsAndOptions) {
    Shell shell;
    EXPECT_EQ(shell.run("nodevik sd" + tab + "re" + tab + "5 0x1018 --ty" + tab + "u3" + tab),
              "<sdo><read><5><0x1018><--type><u32>");
    EXPECT_EQ(shell.run("nodevik nmt " + all), "<nmt><preop><reset><reset-comm><start><stop>");
    EXPECT_EQ(shell.run("nodevik sdo read 5 0x1018 --type=u3" + tab), "<sdo><read><5><0x1018><--type=u32>");
    EXPECT_EQ(shell.run("nodevik monitor --filter emcy,hea" + tab + ",sy" + tab),
              "<monitor><--filter><emcy,heartbeat,sync>");
}

TEST(BashCompletion, CompletesFiles) {
    Shell shell;
    const std::filesystem::path eds = EDS;
    const std::string beginning = eds.string().substr(0, eds.string().size() - 3);
    EXPECT_EQ(shell.run("nodevik eds show " + beginning + tab), "<eds><show><" EDS ">");
    EXPECT_EQ(shell.run("nodevik --eds 5=" + beginning + tab), "<--eds><5=" EDS ">");
    const TemporaryFile odd;
    const std::string with_blank = odd.path() + " of one=7.eds";
    std::filesystem::copy(odd.path(), with_blank);
    EXPECT_EQ(shell.run("nodevik decode " + odd.path() + "\\ o" + tab), "<decode><" + with_blank + ">");
    EXPECT_EQ(shell.run("nodevik decode " + odd.path() + "\\ of\\ one=" + tab),
              "<decode><" + with_blank + ">");
    std::filesystem::remove(with_blank);
}

TEST(BashCompletion, CompletesObjects) {
    Shell shell;
    const std::string line = "nodevik --eds 5=" EDS " sdo read 5 ";
    const std::string words = "<--eds><5=" EDS "><sdo><read><5>";
    EXPECT_EQ(shell.run(line + "Device\\ t" + tab), words + "<Device type>");
    EXPECT_EQ(shell.run(line + "\"Device t" + tab), words + "<Device type>");
    EXPECT_EQ(shell.run(line + "Identity\\ object/V" + tab), words + "<Identity object/Vendor-ID>");
    EXPECT_EQ(shell.run(line + "0x1018:" + all), words + "<0x1018:0><1><2><3><4>");
    EXPECT_EQ(shell.run("nodevik eds dcf " EDS " 5 Device\\ t" + tab + "7"),
              "<eds><dcf><" EDS "><5><Device type=7>");
    EXPECT_EQ(shell.run("nodevik --eds 5=" EDS " sdo read " + tab + "0x1017" + tab), words + "<0x1017>");
}
