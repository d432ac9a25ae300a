#include "tools/options/ProgramOptions.h"

#include "dcmtk/dcmdata/dcuid.h"
#include "dcmtk/oflog/helpers/property.h"
#include "dcmtk/oflog/loglevel.h"
#include "dcmtk/ofstd/ofstd.h"

#include <openjpeg.h>

#include <cctype>

namespace {

// DCMTK's status texts start with a capital; ours continue a "<name>: " prefix.
std::string lowerFirst(const OFString& text)
{
    std::string s = text.c_str();
    if (!s.empty())
        s[0] = char(tolower(static_cast<unsigned char>(s[0])));
    return s;
}

bool looksLikeOption(const char* arg)
{
    return (arg[0] == '-' || arg[0] == '+') && arg[1] != '\0' && !isdigit(static_cast<unsigned char>(arg[1]));
}

OFLogger programLogger(const std::string& name)
{
    return OFLog::getLogger(("kq.apps." + name).c_str());
}

} // namespace

ProgramOptions::ProgramOptions(const char* name, const char* description, OFLogger::LogLevel defaultLevel,
                               bool shortDebug)
: m_name(name)
, m_description(description)
, m_application(name, description)
, m_defaultLevel(defaultLevel)
, m_level(OFLogger::WARN_LOG_LEVEL)
, m_logConfig(false)
, m_usageErrorStatus(1)
{
    m_commandLine.setOptionColumns(LONGCOL, SHORTCOL);
    m_commandLine.setParamColumn(LONGCOL + SHORTCOL + 4);
    m_commandLine.addGroup("general options:", LONGCOL, SHORTCOL + 2);
    m_commandLine.addOption("--help", "-h", "print this help text and exit", OFCommandLine::AF_Exclusive);
    m_commandLine.addOption("--version", "print version information and exit", OFCommandLine::AF_Exclusive);
    if (shortDebug)
    {
        OFLog::addOptions(m_commandLine);
        return;
    }
    // the toolkit's logger options, by the long names its configuration looks for, without -d
    m_commandLine.addOption("--quiet", "-q", "quiet mode, print no warnings and errors");
    m_commandLine.addOption("--verbose", "-v", "verbose mode, print processing details");
    m_commandLine.addOption("--debug", "debug mode, print debug information");
    m_commandLine.addOption("--log-level", "-ll", 1, "[l]evel: string constant",
                            "(fatal, error, warn, info, debug, trace)\nuse level l for the logger");
    m_commandLine.addOption("--log-config", "-lc", 1, "[f]ilename: string", "use config file f for the logger");
}

bool ProgramOptions::parse(int argc, char* argv[], int& exitStatus)
{
    exitStatus = 0;
    OFCommandLine::E_ParseStatus status = m_commandLine.parseLine(argc, argv);
    // Without arguments DCMTK's tools print their help and succeed; a program that needs
    // parameters names the first one missing instead, so that a script that lost its
    // arguments does not pass for a successful run.
    if (status == OFCommandLine::PS_NoArguments)
        status = m_commandLine.getMinParamCount() > 0 ? OFCommandLine::PS_MissingParameter : OFCommandLine::PS_Normal;
    if (status == OFCommandLine::PS_ExclusiveOption)
    {
        if (m_commandLine.findOption("--help"))
            printHelp(stdout);
        else
            printVersion();
        return false;
    }
    if (status != OFCommandLine::PS_Normal)
    {
        exitStatus = usageError(parseError(status, argc, argv));
        return false;
    }
    for (int i = 1; i <= m_commandLine.getParamCount(); ++i)
    {
        const char* param = NULL;
        if (m_commandLine.getParam(i, param) == OFCommandLine::PVS_Empty)
        {
            exitStatus = usageError("parameter " + std::to_string(i) + " is empty");
            return false;
        }
    }
    const std::string loggerError = loggerOptionRefusal(m_commandLine, m_level, m_logConfig);
    if (!loggerError.empty())
    {
        exitStatus = usageError(loggerError);
        return false;
    }
    // every refusal of DCMTK's own (which would print several lines) is caught above
    OFLog::configureFromCommandLine(m_commandLine, m_application, m_defaultLevel);
    return true;
}

std::string ProgramOptions::parseError(OFCommandLine::E_ParseStatus status, int argc, char* argv[])
{
    OFString text;
    m_commandLine.getStatusString(status, text);
    switch (status)
    {
    case OFCommandLine::PS_MissingValue:
    {
        // DCMTK names the option in its long form; name it as it was typed when that is the
        // last argument (an option lacking its value is the last one unless it came from a
        // command file)
        std::string option = text.c_str();
        option = option.substr(option.rfind(' ') + 1);
        if (argc > 1 && looksLikeOption(argv[argc - 1]))
            option = argv[argc - 1];
        return "option " + option + " needs an argument";
    }
    case OFCommandLine::PS_TooManyParameters:
    {
        const char* extra = NULL;
        if (m_commandLine.getParam(m_commandLine.getMaxParamCount() + 1, extra) == OFCommandLine::PVS_Normal)
            return std::string("unexpected parameter ") + extra;
        return lowerFirst(text);
    }
    default:
        return lowerFirst(text);
    }
}

std::string ProgramOptions::loggerOptionRefusal(OFCommandLine& cmd)
{
    int level = 0;
    bool logConfig = false;
    return loggerOptionRefusal(cmd, level, logConfig);
}

std::string ProgramOptions::loggerOptionRefusal(OFCommandLine& cmd, int& level, bool& logConfig)
{
    // as DCMTK reads them: the last of -d, -v and -q counts
    level = OFLogger::WARN_LOG_LEVEL;
    bool levelOption = false;
    cmd.beginOptionBlock();
    if (cmd.findOption("--debug"))
        level = OFLogger::DEBUG_LOG_LEVEL, levelOption = true;
    if (cmd.findOption("--verbose"))
        level = OFLogger::INFO_LOG_LEVEL, levelOption = true;
    if (cmd.findOption("--quiet"))
        level = OFLogger::FATAL_LOG_LEVEL, levelOption = true;
    cmd.endOptionBlock();
    const bool logLevel = cmd.findOption("--log-level");
    if (logLevel)
    {
        if (levelOption)
            return "--log-level not allowed with --verbose, --debug or --quiet";
        const char* value = NULL;
        cmd.getValue(value);
        const dcmtk::log4cplus::LogLevel given = dcmtk::log4cplus::getLogLevelManager().fromString(value);
        if (given == dcmtk::log4cplus::NOT_SET_LOG_LEVEL)
            return std::string("invalid log level ") + value + ", expected fatal, error, warn, info, debug or trace";
        level = given;
    }
    logConfig = cmd.findOption("--log-config");
    if (logConfig)
    {
        if (logLevel)
            return "--log-config not allowed with --log-level";
        if (levelOption)
            return "--log-config not allowed with --verbose, --debug or --quiet";
        const char* file = NULL;
        cmd.getValue(file);
        if (!OFStandard::fileExists(file) || !OFStandard::isReadable(file))
            return std::string("log configuration file ") + file + " cannot be read";
        const dcmtk::log4cplus::helpers::Properties properties(file);
        if (properties.getPropertySubset("log4cplus.").size() == 0 || !properties.exists("log4cplus.rootLogger"))
            return std::string("log configuration file ") + file + " does not set up log4cplus.rootLogger";
    }
    return std::string();
}

bool ProgramOptions::shows(OFLogger::LogLevel level) const
{
    // the program's own messages follow -q, -v, -d, -ll and -lc, not the toolkit's default
    // level: without those options errors and warnings show, progress does not
    if (m_logConfig)
        return programLogger(m_name).isEnabledFor(level);
    return int(level) >= m_level;
}

bool ProgramOptions::verbose() const
{
    return shows(OFLogger::INFO_LOG_LEVEL);
}

bool ProgramOptions::quiet() const
{
    return !shows(OFLogger::ERROR_LOG_LEVEL);
}

void ProgramOptions::error(const std::string& message) const
{
    if (!quiet())
        fprintf(stderr, "%s: %s\n", m_name.c_str(), message.c_str());
}

void ProgramOptions::warning(const std::string& message) const
{
    if (shows(OFLogger::WARN_LOG_LEVEL))
        fprintf(stderr, "%s: warning: %s\n", m_name.c_str(), message.c_str());
}

int ProgramOptions::usageError(const std::string& message) const
{
    fprintf(stderr, "%s: %s (see %s -h)\n", m_name.c_str(), message.c_str(), m_name.c_str());
    return m_usageErrorStatus;
}

void ProgramOptions::printHelp(FILE* stream)
{
    // the layout of OFConsoleApplication::printUsage, to either stream
    OFString syntax, params, options;
    m_commandLine.getSyntaxString(syntax);
    m_commandLine.getParamString(params);
    m_commandLine.getOptionString(options);
    fprintf(stream, "%s: %s\nusage: %s%s\n", m_name.c_str(), m_description.c_str(), m_name.c_str(), syntax.c_str());
    if (!params.empty())
        fprintf(stream, "\n%s", params.c_str());
    if (!options.empty())
        fprintf(stream, "\n%s", options.c_str());
    if (!m_epilogue.empty())
        fprintf(stream, "\n%s", m_epilogue.c_str());
    fflush(stream);
}

void ProgramOptions::printVersion() const
{
    printVersion(m_name, m_versionLines);
}

void ProgramOptions::printVersion(const std::string& name, const std::vector<std::string>& moreLines)
{
    printf("%s (KQ archive) %s\n", name.c_str(), KQ_VERSION);
    printf("DCMTK %s\n", OFFIS_DCMTK_VERSION_STRING);
    printf("OpenJPEG %s\n", opj_version());
    for (const std::string& line : moreLines)
        printf("%s\n", line.c_str());
}
