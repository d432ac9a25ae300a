// Registries of the date/time attribute pairs of DICOM datasets: which date element (DA)
// belongs with which time element (TM), for standard attributes and for private blocks.
#ifndef DTREGISTRY_H
#define DTREGISTRY_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctag.h"
#include "dcmtk/dcmdata/dctagkey.h"

#include <cstddef>
#include <string>

namespace kqtz {

// A date key and the key of the time that belongs to it.
class DateTimeTagPair
{
public:
    DateTimeTagPair();
    DateTimeTagPair(const DcmTagKey& date, const DcmTagKey& time);
    virtual ~DateTimeTagPair();

    const DcmTagKey& date() const { return m_date; }
    const DcmTagKey& time() const { return m_time; }

protected:
    DcmTagKey m_date;
    DcmTagKey m_time;
};

// A pair of private attributes. The element numbers of both keys are the offsets within the
// creator's block (one byte); the block itself is found in the dataset at run time.
class PrivateDateTimeTagPair : public DateTimeTagPair
{
public:
    PrivateDateTimeTagPair(const DcmTagKey& date, const DcmTagKey& time, const char* creator);

    const std::string& creator() const { return m_creator; }

private:
    std::string m_creator;
};

const size_t DT_REGISTRY_SIZE = 41;
const size_t PRIVATE_DT_REGISTRY_SIZE = 16;

// The standard pairs, and the private pairs with their creators, in search order.
extern const DateTimeTagPair dtregistry[DT_REGISTRY_SIZE];
extern const PrivateDateTimeTagPair privdtregistry[PRIVATE_DT_REGISTRY_SIZE];

// Looks date tags up in the two registries.
class DateTimeRegistry
{
public:
    // The registry pair whose date key is the given tag, or null. For a private tag the
    // tag's creator and the low byte of its element must match a private pair; blockBase
    // then receives the tag's block (element & 0xFF00). Standard tags leave it untouched.
    const DateTimeTagPair* findForDate(const DcmTag& tag, unsigned short& blockBase) const;
};

extern const DateTimeRegistry theDateTimeRegistry;

} // namespace kqtz

#endif
