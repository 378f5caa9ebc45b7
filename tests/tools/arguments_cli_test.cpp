// Every command reads its arguments with the same reader: a wrong argument
// gives one line that names it and why, and exit status 2; --help gives the
// options, an example and the exit statuses.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/cli.h"

namespace {

struct Command {
    std::vector<std::string> name;      // "dicomdir", "list"
    std::vector<std::string> operands;  // enough for the command to go on
    bool network;
};

const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {{"lookup"}, {"0010,0010"}, false},
        {{"dump"}, {"a.dcm"}, false},
        {{"convert"}, {"a.dcm", "b.dcm"}, false},
        {{"info"}, {"a.dcm"}, false},
        {{"probe"}, {"a.dcm"}, false},
        {{"capture"}, {"a.pgm", "b.dcm"}, false},
        {{"edit"}, {"a.dcm", "b.dcm"}, false},
        {{"dicomdir", "create"}, {"/tmp"}, false},
        {{"dicomdir", "add"}, {"DICOMDIR", "a.dcm"}, false},
        {{"dicomdir", "list"}, {"DICOMDIR"}, false},
        {{"sr", "render"}, {"a.dcm"}, false},
        {{"sr", "resave"}, {"a.dcm", "b.dcm"}, false},
        {{"echo"}, {"127.0.0.1", "104"}, true},
        {{"store"}, {"127.0.0.1", "104", "a.dcm"}, true},
        {{"find"}, {"127.0.0.1", "104"}, true},
        {{"worklist"}, {"127.0.0.1", "104"}, true},
        {{"move"}, {"--dest", "AE", "127.0.0.1", "104"}, true},
        {{"get"}, {"--dir", "/tmp", "127.0.0.1", "104"}, true},
        {{"commit"}, {"--listen", "11113", "127.0.0.1", "104", "a.dcm"}, true},
        {{"print"}, {"127.0.0.1", "104", "a.dcm"}, true},
    };
    return commands;
}

struct Case {
    std::vector<std::string> options;  // in front of the operands
    std::vector<std::string> operands; // instead of the command's, when set
    std::string fault;                 // what the line says after "zeldicom COMMAND: "
    bool withoutOperands = false;
};

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

}  // namespace

TEST(CommandArguments, EveryFaultIsOneLineNamingItWithStatus2)
{
    for (const Command& command : Commands()) {
        std::string name = Joined(command.name);
        std::vector<Case> cases = {
            {{"--no-such-option"}, {}, "unknown option '--no-such-option'"},
            // Too few operands: the first one missing is named.
            {{}, {}, " missing", true},
        };
        if (command.network) {
            std::vector<std::string> port = command.operands;
            size_t at = std::find(port.begin(), port.end(), "104") - port.begin();
            port[at] = "99999";
            cases.push_back({{}, port, "PORT: '99999' is not a port number (1 to 65535)"});
            port[at] = "abc";
            cases.push_back({{}, port, "PORT: 'abc' is not a port number (1 to 65535)"});
            cases.push_back({{"--timeout", "soon"}, {}, "--timeout: 'soon' is not a number from 0.001 to 86400"});
            cases.push_back({{"-td", "0"}, {}, "-td: '0' is not a number from 0.001 to 86400"});
            cases.push_back({{"--trace", "/nonexistent/trace"}, {}, "--trace: '/nonexistent/trace' is not a folder"});
            cases.push_back({{"-aet", "SEVENTEEN_LETTERS"}, {}, "-aet: 'SEVENTEEN_LETTERS' is not an AE title"});
            // The value of the last option is missing.
            std::vector<std::string> operands = command.operands;
            operands.push_back("-aec");
            cases.push_back({{}, operands, "-aec needs a value (AE)"});
        }
        for (const Case& c : cases) {
            std::vector<std::string> args = command.name;
            args.insert(args.end(), c.options.begin(), c.options.end());
            bool ownOperands = !c.operands.empty() || c.withoutOperands;
            const std::vector<std::string>& operands = ownOperands ? c.operands : command.operands;
            args.insert(args.end(), operands.begin(), operands.end());
            CliResult run = RunCli(args);
            SCOPED_TRACE(Joined(args));
            EXPECT_EQ(run.status, 2);
            EXPECT_EQ(run.out, "");
            ASSERT_EQ(Lines(run.err).size(), 1u) << run.err;
            EXPECT_EQ(run.err.rfind("zeldicom " + name + ": ", 0), 0u) << run.err;
            EXPECT_NE(run.err.find(c.fault), std::string::npos) << run.err;
            EXPECT_NE(run.err.find("(try zeldicom " + name + " --help)"), std::string::npos) << run.err;
        }
    }
    // Faults of one command's own options.
    const std::vector<std::pair<std::vector<std::string>, std::string>> own = {
        {{"capture", "a.pgm", "b.dcm", "--from"}, "zeldicom capture: --from needs a value (REF.dcm)"},
        {{"edit", "--set", "NoSuchKeyword=1", "a", "b"}, "zeldicom edit: --set: 'NoSuchKeyword' is neither a keyword nor a tag"},
        {{"convert", "--implicit", "--deflated", "a", "b"}, "zeldicom convert: --deflated: --implicit, --explicit and"},
        {{"dicomdir", "create", "/nonexistent/folder"}, "zeldicom dicomdir create: DIR: '/nonexistent/folder' is not"},
        {{"dicomdir", "sort", "DICOMDIR"}, "zeldicom dicomdir: unknown subcommand 'sort' (create|add|list)"},
        {{"sr", "render", "--config", "/nonexistent/config", "a.dcm"}, "zeldicom sr render: --config: '/nonexistent"},
        {{"find", "--model", "flat", "127.0.0.1", "104"}, "zeldicom find: --model: 'flat' is neither patient nor"},
        {{"find", "-k", "NoSuchKeyword", "127.0.0.1", "104"}, "zeldicom find: -k: 'NoSuchKeyword' is neither a"},
        {{"move", "127.0.0.1", "104"}, "zeldicom move: --dest missing"},
        {{"get", "127.0.0.1", "104"}, "zeldicom get: --dir missing"},
        {{"get", "--dir", "/nonexistent/folder", "127.0.0.1", "104"}, "zeldicom get: --dir: '/nonexistent/folder' is not"},
        {{"commit", "--listen", "0", "127.0.0.1", "104", "a.dcm"}, "zeldicom commit: --listen: '0' is not a port"},
        {{"worklist", "--date", "someday", "127.0.0.1", "104"}, "zeldicom worklist: --date: 'someday' is not a"},
        {{"echo", "--json", "127.0.0.1", "104"}, "zeldicom echo: unknown option '--json'"},
        {{"print", "--format", "STANDARD\\0,2", "127.0.0.1", "104", "a.dcm"}, "zeldicom print: --format: 'STANDARD"},
        {{"find", "--cancel", "0", "127.0.0.1", "104"}, "zeldicom find: --cancel: '0'"},
        {{"dump", "--json=yes", "a.dcm"}, "zeldicom dump: --json takes no value"},
        {{"frobnicate"}, "zeldicom: unknown command 'frobnicate'"},
    };
    for (const auto& [args, line] : own) {
        CliResult run = RunCli(args);
        EXPECT_EQ(run.status, 2) << Joined(args);
        EXPECT_EQ(run.err.rfind(line, 0), 0u) << Joined(args) << ": " << run.err;
        EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
    }
}

TEST(CommandArguments, HelpShowsOptionsExampleAndExitStatuses)
{
    for (const Command& command : Commands()) {
        std::vector<std::string> args = command.name;
        args.push_back("--help");
        CliResult run = RunCli(args);
        SCOPED_TRACE(Joined(args));
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out.rfind("Usage: zeldicom " + Joined(command.name) + " ", 0), 0u) << run.out;
        EXPECT_NE(run.out.find("\nExample"), std::string::npos);
        EXPECT_NE(run.out.find("Exit status: 0 all done, 1 something failed, 2 bad arguments."), std::string::npos);
        if (command.network) {
            for (const char* option : {"-aet", "-aec", "-to", "-ta", "-td", "-v", "-d", "-q", "--trace"})
                EXPECT_NE(run.out.find(std::string(option) + " "), std::string::npos) << option;
        }
    }
}
