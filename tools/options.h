#pragma once
// The one reader of every command's arguments: long options with the
// spellings DCMTK users have the habit of beside them (-aet, -k, -v), every
// fault one line on standard error that names the option and why (exit
// status 2), and `zeldicom COMMAND --help` made from the same table.
//
//   OptionReader options("dump", "FILE...", "Prints the element tree of each file.");
//   options.Flag("--json", "the DICOM JSON Model", json);
//   options.Example("zeldicom dump --json CT_small.dcm");
//   if (int status = options.Read(argc, argv); status >= 0)
//       return status;
//   for (const std::string& file : options.Operands()) ...
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// The exit statuses of every command.
enum ToolExit { kExitDone = 0, kExitFailed = 1, kExitBadArguments = 2 };

class OptionReader {
public:
    // Checks a value: empty when it is accepted, else the words of the fault
    // ("'abc' is not a number of seconds").
    using Action = std::function<std::string(const std::string& value)>;

    // command as typed after zeldicom ("echo", "sr render"); operands as in
    // the usage line ("HOST PORT FILE...": the names of missing ones are
    // named in the fault, a trailing "..." takes any number, "[X]" is optional).
    OptionReader(std::string command, std::string operands, std::string summary);

    // names: the spellings separated by blanks ("--aet -aet"); value: the
    // name of the value in the help ("AE"), or null for an option without one.
    void Add(const char* names, const char* value, const char* help, Action action);
    void Flag(const char* names, const char* help, bool& target);
    void Text(const char* names, const char* value, const char* help, std::string& target);
    void Texts(const char* names, const char* value, const char* help, std::vector<std::string>& target);
    // A number from low to high (integers when whole is set).
    void Number(const char* names, const char* value, const char* help, double low, double high, double& target,
                bool whole = false);
    // A line of the help under the options, and an example command.
    void Note(const char* line);
    void Example(const char* line);

    // Reads the arguments after the command name. -1 when the command goes
    // on; else the exit status to return at once: 0 after --help, 2 after
    // one line naming the fault.
    int Read(int argc, char** argv);
    const std::vector<std::string>& Operands() const { return m_operands; }

    // "zeldicom COMMAND: message" on standard error; returns 2.
    int BadArgument(const std::string& message) const;
    // The same with exit status 1, for what failed once the arguments were good.
    int Failure(const std::string& message) const;
    void PrintHelp(FILE* out) const;
    const std::string& Command() const { return m_command; }

private:
    struct Option {
        std::vector<std::string> names;
        const char* value;
        const char* help;
        Action action;
    };
    const Option* Find(const std::string& name) const;

    std::string m_command, m_operandText, m_summary;
    std::vector<std::string> m_operandNames;
    size_t m_minOperands = 0, m_maxOperands = 0;
    std::vector<Option> m_options;
    std::vector<std::string> m_notes, m_examples;
    std::vector<std::string> m_operands;
};

// Value checks shared by the commands: empty when the text is accepted.
std::string ReadNumber(const std::string& text, double low, double high, bool whole, double& number);
std::string ReadPort(const std::string& text, unsigned& port);
// A folder that exists (for --trace, --config).
std::string CheckFolder(const std::string& path);
// An AE title: 1 to 16 characters, no backslash or control character (PS3.5 6.2).
std::string CheckAeTitle(const std::string& title);

// A command made of subcommands (dicomdir create|add|list): runs the one
// named first, each with a reader of its own; the exit status.
struct Subcommand {
    const char* name;
    int (*run)(int argc, char** argv);
};
int RunSubcommand(const char* command, const std::vector<Subcommand>& subcommands, int argc, char** argv);
