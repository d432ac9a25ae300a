// Per-modality JPEG 2000 lossy compression rates, read from the file "jpeg2000lossy.conf" in
// the directory named by the environment variable CONF and re-read whenever it changes.
//
// File format, one entry a line: <key>="<rate>", the key a modality such as CT, or "Default"
// for modalities without an entry; no blanks around the equals sign. Blank lines and lines
// starting with "#" are skipped, as are entries whose rate is not in (0, 1]. A rate is the
// compression ratio given to the JPEG 2000 encoder as the fraction of the uncompressed size;
// 1.0 means lossless.
#ifndef JPEG2000LOSSYRATES_H
#define JPEG2000LOSSYRATES_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"

#include <cstdint>
#include <map>
#include <string>

class JPEG2000LossyRates
{
public:
    // Rate of every modality while no file says otherwise.
    static double factoryDefault;

    // path: the configuration file; NULL for $CONF/jpeg2000lossy.conf, or no file at all
    // when CONF is not set. Nothing is read here.
    explicit JPEG2000LossyRates(const char* path);

    // (Re)loads the file when its modification time changed; forgets a file that went away.
    void checkAndLoadConfigFile();

    // The rate of a modality (case-sensitive), or the default rate; loads the file first.
    double getRateForModality(const std::string& modality);

    // Dumps the table on standard output.
    void print();

    // The process-wide table, made during static initialisation.
    static JPEG2000LossyRates& processRates();

private:
    void reset(int64_t modificationTime);

    std::string m_path;
    double m_defaultRate;
    int64_t m_modificationTime;
    std::map<std::string, double> m_rates;
};

// The JPEG 2000 lossy rate for the dataset's Modality (0008,0060) from the process-wide table;
// a dataset without Modality gets the "Default" entry.
double getJPEG2000LossyCompressionRate(DcmDataset& dataset);

#endif
