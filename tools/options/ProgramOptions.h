// The command line of the archive's programs in the manner of DCMTK's tools: an
// OFConsoleApplication with an OFCommandLine that carries the general options every program
// shares (-h/--help, --version, --arguments, -q, -v, -d, -ll, -lc), help on standard output,
// usage errors in one line, and the dcmdata logger configured from the options.
#ifndef PROGRAMOPTIONS_H
#define PROGRAMOPTIONS_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcmdln.h"
#include "dcmtk/ofstd/ofconapp.h"
#include "dcmtk/oflog/oflog.h"

#include <cstdio>
#include <string>
#include <vector>

class ProgramOptions
{
public:
    /// Width of the long option column, as DCMTK's tools use it.
    static const int LONGCOL = 20;
    /// Width of the short option column.
    static const int SHORTCOL = 4;

    /// Sets up the command line of the program called name, described in one line by description,
    /// with the general options group. defaultLevel is the level of DCMTK's loggers when none of
    /// -q, -v, -d, -ll or -lc is given. With shortDebug false, --debug has no short form, so that
    /// the program may give -d another meaning.
    ProgramOptions(const char* name, const char* description, OFLogger::LogLevel defaultLevel,
                   bool shortDebug = true);

    /// The command line, to which the program adds its parameters and option groups; owned here.
    OFCommandLine& commandLine() { return m_commandLine; }

    /// Starts a group of the program's options, aligned with the general options.
    void addGroup(const char* heading) { m_commandLine.addGroup(heading, LONGCOL, SHORTCOL + 2); }

    /// Text that --help prints after the options (targets, environment, exit status, examples);
    /// each line ends with a line end.
    void setHelpEpilogue(const std::string& text) { m_epilogue = text; }

    /// A line that --version prints after the project's, DCMTK's and OpenJPEG's versions.
    void addVersionLine(const std::string& line) { m_versionLines.push_back(line); }

    /// Exit status of a usage error: 1 unless set otherwise.
    void setUsageErrorStatus(int status) { m_usageErrorStatus = status; }

    /// Parses the arguments and configures the loggers. True: the program goes on with the
    /// options in commandLine(). False: the program ends with exitStatus, 0 after --help (on
    /// standard output) or --version, the usage error status after a one-line message on
    /// standard error (unknown option, missing value or parameter, empty parameter, invalid log
    /// level or configuration).
    bool parse(int argc, char* argv[], int& exitStatus);

    /// True when progress is asked for: -v, -d, or a log level of info or finer.
    bool verbose() const;

    /// True when errors are to be kept quiet: -q, or a log level above error.
    bool quiet() const;

    /// Prints "<name>: <message>" on standard error unless quiet().
    void error(const std::string& message) const;

    /// Prints "<name>: warning: <message>" on standard error when warnings are enabled.
    void warning(const std::string& message) const;

    /// Prints "<name>: <message> (see <name> -h)" on standard error and returns the usage error
    /// status: for usage problems the program finds itself.
    int usageError(const std::string& message) const;

    /// Writes the help text (what --help shows) to stream.
    void printHelp(FILE* stream);

    /// Writes the version lines (what --version shows) to standard output.
    void printVersion() const;

    /// Writes the version lines of program name to standard output: the project's version,
    /// DCMTK's, OpenJPEG's, then moreLines; for programs that keep their own command line.
    static void printVersion(const std::string& name, const std::vector<std::string>& moreLines);

    /// What DCMTK's OFLog::configureFromCommandLine would refuse, with a multi-line message and
    /// exit status 1, in the logger options of the parsed command line cmd (-q, -v, -d, -ll,
    /// -lc): one line of text, or empty when it accepts them. For programs that keep their own
    /// command line.
    static std::string loggerOptionRefusal(OFCommandLine& cmd);

    /// The program name.
    const char* name() const { return m_name.c_str(); }

private:
    ProgramOptions(const ProgramOptions&);
    ProgramOptions& operator=(const ProgramOptions&);

    // One line for a parse status of DCMTK's command line; argv to name options as typed.
    std::string parseError(OFCommandLine::E_ParseStatus status, int argc, char* argv[]);
    // loggerOptionRefusal; level gets the level asked for (DCMTK's log4cplus level, warn
    // without an option), logConfig whether -lc is given.
    static std::string loggerOptionRefusal(OFCommandLine& cmd, int& level, bool& logConfig);
    // True when the program's own messages of this level show.
    bool shows(OFLogger::LogLevel level) const;

    std::string m_name;
    std::string m_description;
    OFConsoleApplication m_application;
    OFCommandLine m_commandLine;
    OFLogger::LogLevel m_defaultLevel;
    // the level of -q, -v, -d or -ll (DCMTK's log4cplus level, which "off" and "all" extend);
    // warn without them
    int m_level;
    // -lc given: the configured loggers decide
    bool m_logConfig;
    std::string m_epilogue;
    std::vector<std::string> m_versionLines;
    int m_usageErrorStatus;
};

#endif
