// Task files for the archive's task daemon.
#include "dcmutils/dcmutils.h"
#include "dcmutils/dcmcounter.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

bool OBS_startTask(const std::string& content, const std::string& prefix, const std::string& suffix,
                   const std::string& taskDirectory)
{
    time_t now = time(NULL);
    struct tm local;
    memset(&local, 0, sizeof(local));
    localtime_r(&now, &local);
    char stamp[64];
    snprintf(stamp, sizeof(stamp), "%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    char process[64];
    snprintf(process, sizeof(process), "%d.%d", OFstatic_cast(int, getpid()), nextCounter());

    const std::string name = prefix + "." + stamp + "_0." + process + "." + suffix;
    // An unset TMP is a programming error: making a string of it raises std::logic_error.
    const std::string staging = std::string(getenv("TMP")) + "/" + name;
    const std::string final = taskDirectory + "/" + name;

    FILE* f = fopen(staging.c_str(), "wb");
    if (f == NULL)
        return false;
    const bool written = fprintf(f, "%s\n", content.c_str()) >= 0;
    if (fclose(f) != 0 || !written)
    {
        // A half-written task must never reach the daemon.
        unlink(staging.c_str());
        return false;
    }
    // The daemon may run as another user and must be able to consume and delete the task.
    chmod(staging.c_str(), 0777);
    if (rename(staging.c_str(), final.c_str()) != 0)
    {
        unlink(staging.c_str());
        return false;
    }
    return true;
}
