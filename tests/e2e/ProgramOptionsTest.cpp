// The command line every program shares: help on standard output, --version, the logger
// options and one-line usage errors.
#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dcuid.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

fixtures::RunResult runProgram(const std::string& name, const std::vector<std::string>& args)
{
    std::vector<std::string> argv{fixtures::program(name)};
    argv.insert(argv.end(), args.begin(), args.end());
    return fixtures::run(argv);
}

} // namespace

TEST(ProgramOptions, HelpVersionLoggerOptionsAndUsageErrors)
{
    fixtures::TempDir dir;
    const std::string missing = dir.file("missing.dcm");
    const std::string nowhere = dir.file("no/such/dir/x.kqr");
    struct Program
    {
        std::string name;
        std::vector<std::string> failing; // arguments that parse but fail
        std::string failure;              // the start of the one line they give
        int trouble;                      // the exit status of a failure or usage error
    };
    const Program programs[] = {
        {"makeKqR", {nowhere}, "makeKqR: cannot write " + nowhere, 1},
        {"convertPrivateTags", {missing, dir.file("out.dcm")}, "convertPrivateTags: cannot convert " + missing, 1},
        {"transcode", {"-x", "1.2.840.10008.1.2.1", missing, dir.file("out.dcm")}, "transcode: cannot read " + missing,
         1},
        {"objdiff", {missing, missing}, "Error loading " + missing, 2}, // 1 is for "different"
    };
    const std::regex version(std::string("[A-Za-z]+ \\(KQ archive\\) ") + KQ_VERSION + "\nDCMTK " +
                             OFFIS_DCMTK_VERSION_STRING + "\nOpenJPEG [0-9]+\\.[0-9]+\\.[0-9]+\n");
    for (const Program& p : programs)
    {
        SCOPED_TRACE(p.name);
        const std::string see = " (see " + p.name + " -h)\n";
        fixtures::RunResult help = runProgram(p.name, {"-h"});
        EXPECT_EQ(0, help.status);
        EXPECT_EQ("", help.err);
        EXPECT_EQ(0u, help.out.find(p.name + ": "));
        EXPECT_NE(std::string::npos, help.out.find("\nusage: " + p.name + " [options] "));
        EXPECT_NE(std::string::npos, help.out.find("\nexit status:\n  0  "));
        EXPECT_EQ(help.out, runProgram(p.name, {"--help"}).out);

        fixtures::RunResult r = runProgram(p.name, {"--version"});
        EXPECT_EQ(0, r.status);
        EXPECT_TRUE(std::regex_match(r.out, version)) << r.out;
        EXPECT_EQ(0u, r.out.find(p.name + " (KQ archive) "));

        r = runProgram(p.name, p.failing);
        EXPECT_EQ(p.trouble, r.status);
        EXPECT_EQ(0u, r.err.find(p.failure)) << r.err;
        std::vector<std::string> args = {"-q"};
        args.insert(args.end(), p.failing.begin(), p.failing.end());
        r = runProgram(p.name, args);
        EXPECT_EQ(p.trouble, r.status);
        EXPECT_EQ("", r.out + r.err);
        args[0] = "--arguments";
        r = runProgram(p.name, args);
        EXPECT_EQ(0u, r.err.find("I: calling '" + fixtures::program(p.name) + "' with " +
                                 std::to_string(args.size()) + " arguments: '--arguments' '"))
            << r.err;
        EXPECT_NE(std::string::npos, r.err.find("\n" + p.failure)) << r.err;

        const std::pair<std::vector<std::string>, std::string> usageErrors[] = {
            {{"--no-such-option"}, "unknown option --no-such-option"},
            {{"-ll", "loud"}, "invalid log level loud, expected fatal, error, warn, info, debug or trace"},
            {{"-v", "-ll", "info"}, "--log-level not allowed with --verbose, --debug or --quiet"},
            {{"-lc", missing}, "log configuration file " + missing + " cannot be read"},
        };
        for (const auto& u : usageErrors)
        {
            args = u.first;
            args.insert(args.end(), p.failing.begin(), p.failing.end());
            r = runProgram(p.name, args);
            EXPECT_EQ(p.trouble, r.status);
            EXPECT_EQ("", r.out);
            EXPECT_EQ(p.name + ": " + u.second + see, r.err);
        }
    }
}

// gwav keeps its commands' own command lines and DCMTK's "E: " messages, with the same version
// lines and one-line refusals of the logger options.
TEST(ProgramOptions, GwavSharesVersionAndLoggerOptions)
{
    const std::regex version(std::string("gwav \\(KQ archive\\) ") + KQ_VERSION + "\nDCMTK " +
                             OFFIS_DCMTK_VERSION_STRING + "\nOpenJPEG [0-9.]+\n(libpng [0-9.]+\n)?");
    fixtures::RunResult r = runProgram("gwav", {"--version"});
    EXPECT_EQ(0, r.status);
    EXPECT_TRUE(std::regex_match(r.out, version)) << r.out;
    r = runProgram("gwav", {"info", "-ll", "loud", "x.gwav"});
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("E: invalid log level loud, expected fatal, error, warn, info, debug or trace\n", r.err);
}
