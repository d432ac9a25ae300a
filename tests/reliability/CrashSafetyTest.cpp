// applyChanges -d killed at many moments: every object original or completely edited, and a rerun finishes.
#include "tests/reliability/ReliabilitySupport.h"

#include <sys/inotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

using namespace reliability;

namespace {

const char* const KQR_NAME = "KqR.edit";

// The steps of one object in .tmp: its temporary file created, written, read back, renamed.
const unsigned int STEP_EVENTS = IN_CREATE | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE | IN_MOVED_FROM;

class CrashSafety : public ::testing::Test
{
protected:
    void SetUp() override
    {
        StudyBuild build;
        build.corpusFiles = {"CT_small.dcm",  "MR_small_bigendian.dcm", "JPEG2000.dcm", "MR_small_RLE.dcm",
                             "image_dfl.dcm", "test-SR.dcm",            "rtstruct.dcm", "SC_rgb_jpeg_dcmtk.dcm"};
        ASSERT_TRUE(buildStudy(build, m_root.file("source"), m_root.file(KQR_NAME), m_study));
        ASSERT_EQ(40u, m_study.objects().size());
        m_kqr = readFile(m_root.file(KQR_NAME));
    }

    // A fresh copy of the study with the KqR file inside it (the walk skips "KqR." names).
    void reset(bool withTemporaryDirectory)
    {
        m_pids.clear();
        ASSERT_TRUE(m_study.reset(m_work));
        ASSERT_TRUE(writeFile(m_work + "/" + KQR_NAME, m_kqr));
        ASSERT_TRUE(!withTemporaryDirectory || mkdir((m_work + "/.tmp").c_str(), 0755) == 0);
    }

    std::vector<std::string> argv() const
    {
        return {program("applyChanges"), "-p", m_work + "/" + KQR_NAME, "-d", m_work};
    }

    // Kills a run when `wait` returns and checks what it left: objects original or edited, the KqR
    // file untouched, in .tmp only temporary files of the runs since the last reset. True when killed.
    template <class Wait>
    bool killAndCheck(Wait wait, const std::string& when)
    {
        SCOPED_TRACE(when);
        Launched run;
        EXPECT_TRUE(run.start(argv()));
        wait(run);
        run.kill(SIGKILL);
        const Outcome outcome = run.wait();
        const bool killed = outcome.signal == SIGKILL;
        EXPECT_TRUE(killed || (outcome.exited && outcome.status == 0)) << outcome.describe();
        const Tally tally = m_study.checkAll(m_work);
        EXPECT_TRUE(tally.problems.empty()) << ::testing::PrintToString(tally.problems);
        EXPECT_EQ(m_kqr, readFile(m_work + "/" + KQR_NAME));
        for (const std::string& name : listDir(m_work))
            EXPECT_TRUE(name == KQR_NAME || name == ".tmp" || m_study.has(name)) << "unexpected file " << name;
        m_pids.push_back(run.pid());
        for (const std::string& name : listDir(m_work + "/.tmp"))
            EXPECT_TRUE(std::any_of(m_pids.begin(), m_pids.end(), [&](pid_t pid) {
                const std::string prefix = tempName(pid, "");
                return name.compare(0, prefix.size(), prefix) == 0 && m_study.has(name.substr(prefix.size()));
            })) << "unexpected temporary file " << name;
        return killed;
    }

    // A run to the end over whatever state the directory is in: every object edited.
    void finishAndCheck(const std::string& when)
    {
        SCOPED_TRACE(when);
        ASSERT_TRUE(succeeds(runProgram(argv())));
        const Tally tally = m_study.checkAll(m_work);
        EXPECT_TRUE(tally.problems.empty()) << ::testing::PrintToString(tally.problems);
        EXPECT_EQ(int(m_study.objects().size()), tally.edited);
    }

    TempDir m_root;
    std::string m_work = m_root.file("study");
    std::string m_kqr;
    Study m_study;
    std::vector<pid_t> m_pids; // of the runs since the last reset
};

} // namespace

TEST_F(CrashSafety, KilledAtAnyMomentEveryObjectIsWholeAndARerunFinishes)
{
    // An undisturbed run: its duration, and the number of step events.
    reset(true);
    DirectoryWatch watch;
    ASSERT_TRUE(watch.add(m_work + "/.tmp", STEP_EVENTS));
    const auto started = std::chrono::steady_clock::now();
    Launched full;
    ASSERT_TRUE(full.start(argv()));
    int events = 0;
    std::string name;
    for (bool running = true; running;)
        if (watch.next(5, name))
            ++events;
        else if (!full.running())
            for (running = false; watch.next(0, name);)
                ++events;
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    ASSERT_TRUE(succeeds(full.wait()));
    const Tally tally = m_study.checkAll(m_work);
    ASSERT_TRUE(tally.problems.empty()) << ::testing::PrintToString(tally.problems);
    ASSERT_EQ(40, tally.edited);
    ASSERT_GE(events, 3 * 40);
    // Killed right after step events spread over the run, then after delays spread over it.
    std::mt19937 random(20240611u);
    int byEvent = 0, byDelay = 0, chained = 0;
    const int eventKills = trials(48), delayKills = trials(32);
    for (int k = 0; k < eventKills + delayKills; ++k)
    {
        const bool atEvent = k < eventKills;
        const int target = atEvent ? int((long(k) * events) / eventKills) + int(random() % 3) : 0;
        const double delay =
            atEvent ? 0 : seconds * (k - eventKills + std::uniform_real_distribution<double>(0, 1)(random)) / delayKills;
        reset(atEvent);
        DirectoryWatch steps;
        ASSERT_TRUE(!atEvent || steps.add(m_work + "/.tmp", STEP_EVENTS));
        const std::string when =
            atEvent ? "kill at step event " + std::to_string(target) : "kill after " + std::to_string(delay) + " s";
        const bool killed = killAndCheck(
            [&](Launched& run) {
                std::this_thread::sleep_for(std::chrono::duration<double>(delay));
                for (int seen = 0; atEvent && seen <= target;)
                    if (steps.next(5, name))
                        ++seen;
                    else if (!run.running())
                        break;
            },
            when);
        (atEvent ? byEvent : byDelay) += killed;
        if (k % 4 == 3)
            finishAndCheck("rerun after the " + when);
    }
    // One study killed again and again, each run starting from what the last one left.
    reset(false);
    for (int k = 0; k < trials(12); ++k)
    {
        const double delay = seconds * std::uniform_real_distribution<double>(0.05, 0.6)(random);
        chained += killAndCheck([&](Launched&) { std::this_thread::sleep_for(std::chrono::duration<double>(delay)); },
                                "chained kill " + std::to_string(k));
    }
    finishAndCheck("rerun after the chained kills");
    const int killsSurvived = byEvent + byDelay + chained;
    printf("[ figures  ] kills survived: %d (%d at step events, %d after delays, %d chained); undisturbed run %.2f s, "
           "%d step events\n", killsSurvived, byEvent, byDelay, chained, seconds, events);
    RecordProperty("kills_survived", killsSurvived);
    EXPECT_GE(killsSurvived, trials(60));
}
