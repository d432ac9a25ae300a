#include "dcmutils/codec/JPEG2000LossyRates.h"

#include "dcmtk/dcmdata/dcdeftag.h"

#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>

double JPEG2000LossyRates::factoryDefault = 0.1;

// The process-wide table: notes CONF now, reads the file on the first look-up.
static JPEG2000LossyRates processWideRates(NULL);

JPEG2000LossyRates& JPEG2000LossyRates::processRates()
{
    return processWideRates;
}

JPEG2000LossyRates::JPEG2000LossyRates(const char* path)
: m_path()
, m_defaultRate(factoryDefault)
, m_modificationTime(0)
, m_rates()
{
    if (path)
        m_path = path;
    else
    {
        const char* conf = getenv("CONF");
        if (conf)
            m_path = std::string(conf) + "/jpeg2000lossy.conf";
    }
}

void JPEG2000LossyRates::reset(int64_t modificationTime)
{
    m_defaultRate = factoryDefault;
    m_rates.clear();
    m_modificationTime = modificationTime;
}

void JPEG2000LossyRates::checkAndLoadConfigFile()
{
    if (m_path.empty())
        return;
    struct stat st;
    if (stat(m_path.c_str(), &st) != 0)
    {
        // the file went away: back to the factory default
        if (m_modificationTime != 0)
            reset(0);
        return;
    }
    const int64_t modificationTime = int64_t(st.st_mtime);
    if (modificationTime == m_modificationTime)
        return;
    FILE* file = fopen(m_path.c_str(), "r");
    if (file == NULL)
        return;
    reset(modificationTime);

    char line[256];
    char key[256];
    double rate = 0.0;
    while (fgets(line, sizeof(line), file))
    {
        const char* p = line;
        while (*p && isspace((unsigned char)*p))
            ++p;
        if (*p == '\0' || *p == '#')
            continue;
        if (sscanf(p, "%255[^=]=\"%lf\"", key, &rate) < 2)
            continue;
        if (!(rate > 0.0 && rate <= 1.0))
            continue;
        m_rates[key] = rate;
        if (std::string(key) == "Default")
            m_defaultRate = rate;
    }
    fclose(file);
}

double JPEG2000LossyRates::getRateForModality(const std::string& modality)
{
    checkAndLoadConfigFile();
    std::map<std::string, double>::const_iterator it = m_rates.find(modality);
    return it != m_rates.end() ? it->second : m_defaultRate;
}

void JPEG2000LossyRates::print()
{
    printf("========= JPEG2000LossyRates - %s[%lu] ===========\n", m_path.c_str(), (unsigned long)m_modificationTime);
    printf("--------- Default: %lf;        Factory Default: %lf\n", m_defaultRate, factoryDefault);
    if (m_rates.empty())
        printf("[EMPTY MAP]");
    else
    {
        for (std::map<std::string, double>::const_iterator it = m_rates.begin(); it != m_rates.end(); ++it)
            printf("'%s' = '%lf'\n", it->first.c_str(), it->second);
    }
}

double getJPEG2000LossyCompressionRate(DcmDataset& dataset)
{
    const char* modality = NULL;
    dataset.findAndGetString(DCM_Modality, modality);
    return JPEG2000LossyRates::processRates().getRateForModality(modality ? modality : "Default");
}
