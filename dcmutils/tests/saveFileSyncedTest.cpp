// saveFileSynced: a write that fails at any point, the last buffered bytes included, is an
// error with the system's reason (DcmFileFormat::saveFile loses a failure of its final flush).
#include "dcmutils/dcmutils.h"

#include "tests/fixtures/Fixtures.h"

#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

// Lowers the file size limit of this process for its lifetime; writes past it fail with EFBIG.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_saved);
        m_handler = signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = m_saved;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_saved);
        signal(SIGXFSZ, m_handler);
    }

private:
    struct rlimit m_saved;
    void (*m_handler)(int);
};

off_t fileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

OFCondition save(DcmFileFormat& file, const std::string& path)
{
    return saveFileSynced(file, path.c_str(), EXS_Unknown, EET_UndefinedLength, EGL_recalcGL, EPD_noChange, 0, 0,
                          EWM_createNewMeta);
}

} // namespace

TEST(SaveFileSynced, WritesWhatSaveFileWrites)
{
    fixtures::TempDir dir;
    DcmFileFormat file;
    ASSERT_TRUE(file.loadFile(fixtures::corpusFile("MR_small_bigendian.dcm").c_str()).good());
    ASSERT_TRUE(save(file, dir.file("synced")).good());
    ASSERT_TRUE(file.saveFile(dir.file("plain").c_str(), EXS_Unknown, EET_UndefinedLength, EGL_recalcGL,
                              EPD_noChange, 0, 0, EWM_createNewMeta)
                    .good());
    EXPECT_EQ(fixtures::readFile(dir.file("plain")), fixtures::readFile(dir.file("synced")));

    const OFCondition missing = save(file, dir.file("no/such/dir"));
    EXPECT_TRUE(missing.bad());
    EXPECT_STREQ("No such file or directory", missing.text());
}

TEST(SaveFileSynced, ReportsWritesThatFailLate)
{
    // little endian, and deflated, whose compressing stream holds back the end of the data
    for (const char* name : {"CT_small.dcm", "image_dfl.dcm"})
    {
        SCOPED_TRACE(name);
        fixtures::TempDir dir;
        DcmFileFormat file;
        ASSERT_TRUE(file.loadFile(fixtures::corpusFile(name).c_str()).good());
        ASSERT_TRUE(file.loadAllDataIntoMemory().good());
        ASSERT_TRUE(save(file, dir.file("full")).good());
        const off_t size = fileSize(dir.file("full"));
        ASSERT_GT(size, 1000);

        // A limit inside the last buffered block: saveFile reported success for a truncated file.
        for (off_t limit : {off_t(size - 1), off_t(size - 100), off_t(size / 2), off_t(100)})
        {
            SCOPED_TRACE(limit);
            const std::string path = dir.file("limited" + std::to_string(limit));
            OFCondition status;
            {
                FileSizeLimit guard(limit);
                status = save(file, path);
            }
            EXPECT_TRUE(status.bad());
            EXPECT_STREQ("File too large", status.text());
            // the partly written file stays for the caller to deal with
            EXPECT_EQ(limit, fileSize(path));
        }
        {
            FileSizeLimit guard(size);
            EXPECT_TRUE(save(file, dir.file("exact")).good());
        }
        EXPECT_EQ(fixtures::readFile(dir.file("full")), fixtures::readFile(dir.file("exact")));
    }
}
