#include "dcmutils/StringOutputStream.h"

StringConsumer::StringConsumer(std::string& target) : m_target(target) {}

offile_off_t StringConsumer::avail() const
{
    return OFstatic_cast(offile_off_t, 1) << 30;
}

offile_off_t StringConsumer::write(const void* buf, offile_off_t buflen)
{
    m_target.append(OFstatic_cast(const char*, buf), OFstatic_cast(size_t, buflen));
    return buflen;
}

StringOutputStream::StringOutputStream(std::string& target) : DcmOutputStream(&m_consumer), m_consumer(target) {}
