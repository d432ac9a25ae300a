// Shared by the fuzz targets.
#include "fuzz/FuzzSupport.h"

#include "privatetags/KQDictionary.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/oflog/oflog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

namespace kqfuzz {

namespace {

std::string scratchDirectory()
{
    const char* base = getenv("TMPDIR");
    std::string dir = std::string(base && *base ? base : "/tmp") + "/kqfuzz." + std::to_string(getpid());
    mkdir(dir.c_str(), 0700);
    return dir;
}

std::ostringstream sink;

} // namespace

void initialize()
{
    KQDictionary::registerEntries();
    OFLog::configure(OFLogger::FATAL_LOG_LEVEL);
    std::cout.rdbuf(sink.rdbuf());
    std::cerr.rdbuf(sink.rdbuf());
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0)
    {
        dup2(null, 1);
        close(null);
    }
}

std::string writeScratch(const std::string& name, const uint8_t* data, size_t size)
{
    static const std::string dir = scratchDirectory();
    sink.str("");
    const std::string path = dir + "/" + name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
    return path;
}

void require(bool condition, const char* what)
{
    if (!condition)
    {
        fprintf(stderr, "invariant violated: %s\n", what);
        abort();
    }
}

} // namespace kqfuzz
