// The option reader of every command (see options.h).
#include "tools/options.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "platform/text.h"

using namespace zeldicom;

OptionReader::OptionReader(std::string command, std::string operands, std::string summary)
    : m_command(std::move(command)), m_operandText(std::move(operands)), m_summary(std::move(summary))
{
    std::istringstream words(m_operandText);
    for (std::string word; words >> word;) {
        bool optional = word.front() == '[';
        bool repeated = word.size() > 3 && word.compare(word.size() - 3, 3, "...") == 0;
        std::string name = word;
        if (optional)
            name = name.substr(1, name.find(']') - 1);
        if (repeated && !optional)
            name.resize(name.size() - 3);
        m_operandNames.push_back(name);
        if (!optional)
            ++m_minOperands;
        m_maxOperands = repeated ? static_cast<size_t>(-1) : m_maxOperands + 1;
    }
}

void OptionReader::Add(const char* names, const char* value, const char* help, Action action)
{
    Option option{{}, value, help, std::move(action)};
    std::istringstream words(names);
    for (std::string word; words >> word;)
        option.names.push_back(word);
    m_options.push_back(std::move(option));
}

void OptionReader::Flag(const char* names, const char* help, bool& target)
{
    Add(names, nullptr, help, [&target](const std::string&) {
        target = true;
        return std::string();
    });
}

void OptionReader::Text(const char* names, const char* value, const char* help, std::string& target)
{
    Add(names, value, help, [&target](const std::string& text) {
        target = text;
        return std::string();
    });
}

void OptionReader::Texts(const char* names, const char* value, const char* help, std::vector<std::string>& target)
{
    Add(names, value, help, [&target](const std::string& text) {
        target.push_back(text);
        return std::string();
    });
}

void OptionReader::Number(const char* names, const char* value, const char* help, double low, double high,
                          double& target, bool whole)
{
    Add(names, value, help,
        [&target, low, high, whole](const std::string& text) { return ReadNumber(text, low, high, whole, target); });
}

void OptionReader::Note(const char* line)
{
    m_notes.push_back(line);
}

void OptionReader::Example(const char* line)
{
    m_examples.push_back(line);
}

const OptionReader::Option* OptionReader::Find(const std::string& name) const
{
    for (const Option& option : m_options)
        for (const std::string& spelling : option.names)
            if (spelling == name)
                return &option;
    return nullptr;
}

int OptionReader::BadArgument(const std::string& message) const
{
    std::fprintf(stderr, "zeldicom %s: %s (try zeldicom %s --help)\n", m_command.c_str(), message.c_str(),
                 m_command.c_str());
    return kExitBadArguments;
}

int OptionReader::Failure(const std::string& message) const
{
    std::fprintf(stderr, "zeldicom %s: %s\n", m_command.c_str(), message.c_str());
    return kExitFailed;
}

int OptionReader::Read(int argc, char** argv)
{
    bool optionsEnd = false;
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        if (optionsEnd || arg.size() < 2 || arg[0] != '-') {
            m_operands.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnd = true;
            continue;
        }
        if (arg == "--help" || arg == "-h") {
            PrintHelp(stdout);
            return kExitDone;
        }
        // --name=value is the same as --name value.
        std::string value;
        bool inlineValue = false;
        if (size_t equals = arg.find('='); arg.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            value = arg.substr(equals + 1);
            arg.resize(equals);
            inlineValue = true;
        }
        const Option* option = Find(arg);
        if (!option)
            return BadArgument("unknown option '" + arg + "'");
        if (!option->value) {
            if (inlineValue)
                return BadArgument(arg + " takes no value");
        } else if (!inlineValue) {
            if (i + 1 >= argc)
                return BadArgument(arg + " needs a value (" + option->value + ")");
            value = argv[++i];
        }
        if (std::string fault = option->action(value); !fault.empty())
            return BadArgument(arg + ": " + fault);
    }
    if (m_operands.size() < m_minOperands)
        return BadArgument(m_operandNames[m_operands.size()] + " missing");
    if (m_operands.size() > m_maxOperands)
        return BadArgument("unexpected operand '" + m_operands[m_maxOperands] + "'");
    return -1;
}

void OptionReader::PrintHelp(FILE* out) const
{
    std::fprintf(out, "Usage: zeldicom %s [OPTIONS] %s\n%s\n", m_command.c_str(), m_operandText.c_str(),
                 m_summary.c_str());
    std::fprintf(out, "Options:\n");
    for (const Option& option : m_options) {
        std::string names;
        for (const std::string& name : option.names)
            names += (names.empty() ? "" : ", ") + name;
        if (option.value)
            names += std::string(" ") + option.value;
        // The help wrapped at word boundaries into a column from the 28th character.
        std::string help = option.help, line;
        std::vector<std::string> lines;
        std::istringstream words(help);
        for (std::string word; words >> word;) {
            if (!line.empty() && line.size() + 1 + word.size() > 72) {
                lines.push_back(line);
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        lines.push_back(line);
        if (names.size() > 24)
            std::fprintf(out, "  %s\n", names.c_str());
        for (size_t i = 0; i < lines.size(); ++i)
            std::fprintf(out, "  %-24s %s\n", i == 0 && names.size() <= 24 ? names.c_str() : "", lines[i].c_str());
    }
    std::fprintf(out, "  %-24s %s\n", "-h, --help", "print this text");
    for (const std::string& note : m_notes)
        std::fprintf(out, "%s\n", note.c_str());
    if (!m_examples.empty())
        std::fprintf(out, "Example%s:\n", m_examples.size() > 1 ? "s" : "");
    for (const std::string& example : m_examples)
        std::fprintf(out, "  %s\n", example.c_str());
    std::fprintf(out, "Exit status: 0 all done, 1 something failed, 2 bad arguments.\n");
}

std::string ReadNumber(const std::string& text, double low, double high, bool whole, double& number)
{
    char* end = nullptr;
    double read = std::strtod(text.c_str(), &end);
    bool good = !text.empty() && end && *end == '\0' && std::isfinite(read) && read >= low && read <= high &&
                (!whole || read == std::trunc(read));
    if (!good)
        return FormatText("'%s' is not %s from %g to %g", text.c_str(), whole ? "a whole number" : "a number", low,
                          high);
    number = read;
    return "";
}

std::string ReadPort(const std::string& text, unsigned& port)
{
    double number = 0;
    if (!ReadNumber(text, 1, 65535, true, number).empty())
        return "'" + text + "' is not a port number (1 to 65535)";
    port = static_cast<unsigned>(number);
    return "";
}

std::string CheckFolder(const std::string& path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        return "'" + path + "' is not a folder";
    return "";
}

std::string CheckAeTitle(const std::string& title)
{
    bool blank = title.find_first_not_of(' ') == std::string::npos;
    bool control = false;
    for (unsigned char c : title)
        control = control || c < 0x20 || c == '\\' || c == 0x7F;
    if (title.empty() || title.size() > 16 || blank || control)
        return "'" + title + "' is not an AE title (1 to 16 characters, not all blank, no backslash)";
    return "";
}

int RunSubcommand(const char* command, const std::vector<Subcommand>& subcommands, int argc, char** argv)
{
    std::string names;
    for (const Subcommand& subcommand : subcommands)
        names += (names.empty() ? "" : "|") + std::string(subcommand.name);
    OptionReader reader(command, names + " ...", "zeldicom " + std::string(command) + " SUBCOMMAND --help shows its options.");
    std::string first = argc > 0 ? argv[0] : "";
    for (const Subcommand& subcommand : subcommands)
        if (first == subcommand.name)
            return subcommand.run(argc - 1, argv + 1);
    if (first == "--help" || first == "-h") {
        reader.PrintHelp(stdout);
        return kExitDone;
    }
    if (first.empty())
        return reader.BadArgument("SUBCOMMAND missing (" + names + ")");
    return reader.BadArgument("unknown subcommand '" + first + "' (" + names + ")");
}
