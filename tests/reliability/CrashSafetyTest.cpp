// applyChanges -d killed with SIGKILL at many moments of a run over a study of 40 objects: every
// object must be byte-identical to its original or completely and correctly edited, none missing
// or truncated, and a new run must finish the job.
#include "tests/reliability/ReliabilitySupport.h"
#include "tests/reliability/StudyBuilder.h"

#include "tests/fixtures/Fixtures.h"

#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <thread>

using namespace reliability;

namespace {

const char* const KQR_NAME = "KqR.edit";

class CrashSafety : public ::testing::Test
{
protected:
    void SetUp() override
    {
        m_source = m_root.file("source");
        m_work = m_root.file("study");
        StudyBuild build;
        build.corpusFiles = crashCorpusFiles();
        ASSERT_TRUE(buildStudy(build, m_source, m_root.file(KQR_NAME), m_study));
        ASSERT_EQ(40u, m_study.objects().size());
        m_kqr = fixtures::readFile(m_root.file(KQR_NAME));
    }

    // A fresh copy of the study with the KqR file inside it (the walk skips "KqR." names).
    void reset(bool withTemporaryDirectory)
    {
        ASSERT_TRUE(resetStudyDirectory(m_study, m_work));
        ASSERT_TRUE(fixtures::writeFile(m_work + "/" + KQR_NAME, m_kqr));
        if (withTemporaryDirectory)
        {
            ASSERT_EQ(0, mkdir((m_work + "/.tmp").c_str(), 0755));
        }
    }

    std::vector<std::string> argv() const
    {
        return {applyChangesPath(), "-p", m_work + "/" + KQR_NAME, "-d", m_work};
    }

    // Everything a killed run may leave: objects original or edited, the KqR file untouched, no
    // new visible file, and in .tmp only temporary files of the killed process.
    void checkAfterKill(pid_t killed, bool anyRun, const std::string& when, int& edited)
    {
        SCOPED_TRACE(when);
        int original = 0;
        std::vector<std::string> problems;
        m_study.checkAll(m_work, original, edited, problems);
        EXPECT_TRUE(problems.empty()) << ::testing::PrintToString(problems);
        EXPECT_EQ(m_study.objects().size(), size_t(original + edited));
        EXPECT_EQ(m_kqr, fixtures::readFile(m_work + "/" + KQR_NAME));
        for (const std::string& name : fixtures::listDir(m_work))
            EXPECT_TRUE(name == KQR_NAME || name == ".tmp" || m_study.indexOf(name) < m_study.objects().size())
                << "unexpected file " << name;
        // the killed run's own, or (chained runs) those of runs killed before it
        const std::string prefix = ".applychanges";
        for (const std::string& name : fixtures::listDir(m_work + "/.tmp"))
        {
            const size_t dot = name.find('.', prefix.size());
            const std::string pid = dot == std::string::npos ? "" : name.substr(prefix.size(), dot - prefix.size());
            const bool ours = name.compare(0, prefix.size(), prefix) == 0 && !pid.empty() &&
                              pid.find_first_not_of("0123456789") == std::string::npos &&
                              (anyRun || pid == std::to_string(killed)) &&
                              m_study.indexOf(name.substr(dot + 1)) < m_study.objects().size();
            EXPECT_TRUE(ours) << "unexpected temporary file " << name;
            m_leftovers.insert(name);
        }
    }

    // A run to the end over whatever state the directory is in: every object edited.
    void finishAndCheck(const std::string& when)
    {
        SCOPED_TRACE(when);
        const Outcome outcome = runProgram(argv());
        ASSERT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
        int original = 0, edited = 0;
        std::vector<std::string> problems;
        m_study.checkAll(m_work, original, edited, problems);
        EXPECT_TRUE(problems.empty()) << ::testing::PrintToString(problems);
        EXPECT_EQ(int(m_study.objects().size()), edited);
        ++m_reruns;
    }

    // Starts a run and kills it when `killer` says so; true when it was killed (not finished).
    template <class Killer>
    bool killRun(Killer killer, pid_t& pid)
    {
        Launched run;
        if (!run.start(argv()))
            return false;
        pid = run.pid();
        killer(run);
        run.kill(SIGKILL);
        const Outcome outcome = run.wait();
        if (outcome.signal == SIGKILL)
            return true;
        EXPECT_TRUE(outcome.exited && outcome.status == 0) << outcome.describe();
        return false;
    }

    fixtures::TempDir m_root;
    std::string m_source;
    std::string m_work;
    std::string m_kqr;
    Study m_study;
    std::set<std::string> m_leftovers;
    int m_reruns = 0;
};

// Events of the temporary directory that mark the steps of one object: the temporary file is
// created, written and closed (read back by a verification of a large object), renamed over the object.
const unsigned int STEP_EVENTS = IN_CREATE | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE | IN_MOVED_FROM;

} // namespace

TEST_F(CrashSafety, KilledAtAnyMomentEveryObjectIsWholeAndARerunFinishes)
{
    // Undisturbed runs: the duration of one, and the number of step events.
    reset(false);
    const auto started = std::chrono::steady_clock::now();
    const Outcome timed = runProgram(argv());
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    ASSERT_TRUE(timed.exited && timed.status == 0) << timed.describe();
    reset(true);
    DirectoryWatch watch;
    ASSERT_TRUE(watch.add(m_work + "/.tmp", STEP_EVENTS));
    Launched full;
    ASSERT_TRUE(full.start(argv()));
    int events = 0;
    unsigned int mask = 0;
    std::string name;
    for (;;)
    {
        if (watch.next(5, mask, name))
            ++events;
        else if (!full.running())
        {
            while (watch.next(0, mask, name))
                ++events;
            break;
        }
    }
    const Outcome fullOutcome = full.wait();
    ASSERT_TRUE(fullOutcome.exited && fullOutcome.status == 0) << fullOutcome.describe();
    int original = 0, edited = 0;
    std::vector<std::string> problems;
    m_study.checkAll(m_work, original, edited, problems);
    ASSERT_TRUE(problems.empty()) << ::testing::PrintToString(problems);
    ASSERT_EQ(40, edited);
    ASSERT_GE(events, 3 * 40);

    std::mt19937 random(20240611u);
    int killsSurvived = 0;
    int byEvent = 0, byDelay = 0, chained = 0;

    // 1. At a step event: the kill lands right after a temporary file was created, written,
    //    read back or renamed, spread over the whole run.
    const int eventKills = trials(48);
    for (int k = 0; k < eventKills; ++k)
    {
        const int target = int((long(k) * events) / eventKills) + int(random() % 3);
        reset(true);
        DirectoryWatch stepWatch;
        ASSERT_TRUE(stepWatch.add(m_work + "/.tmp", STEP_EVENTS));
        pid_t pid = 0;
        const bool killed = killRun(
            [&](Launched& run) {
                int seen = 0;
                unsigned int m = 0;
                std::string n;
                while (seen <= target)
                {
                    if (stepWatch.next(5, m, n))
                        ++seen;
                    else if (!run.running())
                        break;
                }
            },
            pid);
        int editedNow = 0;
        checkAfterKill(pid, false, "kill at step event " + std::to_string(target), editedNow);
        if (killed)
        {
            ++killsSurvived;
            ++byEvent;
        }
        if (k % 4 == 3)
            finishAndCheck("rerun after the kill at step event " + std::to_string(target));
    }

    // 2. After a delay: from the start of the process to the end of the run.
    const int delayKills = trials(32);
    for (int k = 0; k < delayKills; ++k)
    {
        std::uniform_real_distribution<double> jitter(0.0, 1.0);
        const double delay = seconds * (k + jitter(random)) / delayKills;
        reset(false);
        pid_t pid = 0;
        const bool killed = killRun(
            [&](Launched&) { std::this_thread::sleep_for(std::chrono::duration<double>(delay)); }, pid);
        int editedNow = 0;
        checkAfterKill(pid, false, "kill after " + std::to_string(delay) + " s", editedNow);
        if (killed)
        {
            ++killsSurvived;
            ++byDelay;
        }
        if (k % 4 == 3)
            finishAndCheck("rerun after the kill after " + std::to_string(delay) + " s");
    }

    // 3. One study killed again and again, each run starting from what the last one left.
    reset(false);
    for (int k = 0; k < trials(12); ++k)
    {
        std::uniform_real_distribution<double> moment(0.05, 0.6);
        const double delay = seconds * moment(random);
        pid_t pid = 0;
        const bool killed = killRun(
            [&](Launched&) { std::this_thread::sleep_for(std::chrono::duration<double>(delay)); }, pid);
        int editedNow = 0;
        checkAfterKill(pid, true, "chained kill " + std::to_string(k), editedNow);
        if (killed)
        {
            ++killsSurvived;
            ++chained;
        }
    }
    finishAndCheck("rerun after the chained kills");

    printf("[ figures  ] kills survived: %d (%d at step events, %d after delays, %d chained); %d reruns finished "
           "the job; %d temporary files left in .tmp by killed runs; undisturbed run %.2f s, %d step events\n",
           killsSurvived, byEvent, byDelay, chained, m_reruns, int(m_leftovers.size()), seconds, events);
    RecordProperty("kills_survived", killsSurvived);
    EXPECT_GE(killsSurvived, trials(60));
}
