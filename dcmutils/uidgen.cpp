// UID generation and the module's counter.
#include "dcmutils/dcmutils.h"
#include "dcmutils/dcmcounter.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

int siteID = 0;
int counter = 0;

namespace {

// Site id used when no valid one is configured.
const int DEFAULT_SITE_ID = 11111111;
// Longest UID DICOM allows.
const size_t MAX_UID_LENGTH = 64;

// Reads the site id once per process from the file named by SITEID_FILE.
int establishSiteID()
{
    if (siteID != 0)
        return siteID;
    int value = DEFAULT_SITE_ID;
    const char* name = getenv("SITEID_FILE");
    if (name != NULL)
    {
        FILE* f = fopen(name, "rb");
        if (f != NULL)
        {
            if (fscanf(f, "%d", &value) != 1)
                value = -1;
            fclose(f);
            if (value < 1 || value > 9999999)
                value = DEFAULT_SITE_ID;
        }
    }
    siteID = value;
    return siteID;
}

} // namespace

int nextCounter()
{
    counter = (counter >= 1 && counter < 999) ? counter + 1 : 1;
    return counter;
}

char* createSOPInstanceUID(const char* root)
{
    time_t now = time(NULL);
    struct tm local;
    memset(&local, 0, sizeof(local));
    localtime_r(&now, &local);
    const int pid = OFstatic_cast(int, getpid());
    const int site = establishSiteID();
    const int count = nextCounter();
    if (root == NULL)
        return NULL;

    const char* format = "%s.%d.%04d%02d%02d%02d%02d%02d.%d.%d";
    int n = snprintf(NULL, 0, format, root, site, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                     local.tm_hour, local.tm_min, local.tm_sec, pid, count);
    if (n < 0 || OFstatic_cast(size_t, n) > MAX_UID_LENGTH)
        return NULL;
    char* uid = new char[n + 1];
    snprintf(uid, n + 1, format, root, site, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
             local.tm_hour, local.tm_min, local.tm_sec, pid, count);
    return uid;
}

char* createSOPInstanceUID()
{
    return createSOPInstanceUID(KQ_SOP_INSTANCE_ROOT);
}

