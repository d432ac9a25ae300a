#include "dcmutils/ChangeSetCharset.h"

#include "dcmutils/ChangeSetCheck.h"

#include "dcmtk/dcmdata/dcdeftag.h"
#include "dcmtk/dcmdata/dcspchrs.h"
#include "dcmtk/dcmdata/dcsequen.h"

namespace {

bool isASCII(const char* text, Uint32 length)
{
    for (Uint32 i = 0; i < length; ++i)
        if (OFstatic_cast(unsigned char, text[i]) >= 0x80 || text[i] == 0x1b)
            return false;
    return true;
}

// Calls visit for every element of the item, nested ones included; stops at the first false.
template <typename Visit> bool forEachElement(DcmItem& item, Visit visit)
{
    for (DcmObject* obj = item.nextInContainer(nullptr); obj; obj = item.nextInContainer(obj))
    {
        if (obj->ident() == EVR_SQ)
        {
            DcmSequenceOfItems* seq = OFstatic_cast(DcmSequenceOfItems*, obj);
            for (DcmObject* i = seq->nextInContainer(nullptr); i; i = seq->nextInContainer(i))
                if (!forEachElement(*OFstatic_cast(DcmItem*, i), visit))
                    return false;
        }
        else if (!visit(*OFstatic_cast(DcmElement*, obj)))
            return false;
    }
    return true;
}

bool hasNonASCIIText(DcmElement& element)
{
    if (!element.isAffectedBySpecificCharacterSet())
        return false;
    char* value = nullptr;
    return element.getString(value).good() && value && !isASCII(value, element.getLength());
}

// Whether an element's value converts from its character set at all (to UTF-8).
bool isValidIn(DcmElement& element, const std::string& charset)
{
    DcmSpecificCharacterSet toUTF8;
    char* value = nullptr;
    OFString converted;
    return toUTF8.selectCharacterSet(charset.c_str()).good() && element.getString(value).good() && value &&
           toUTF8.convertString(value, element.getLength(), converted).good();
}

std::string trimmed(const OFString& text)
{
    std::string s = text.c_str();
    const size_t first = s.find_first_not_of(' ');
    const size_t last = s.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : s.substr(first, last - first + 1);
}

std::string shown(const std::string& charset)
{
    return charset.empty() ? "the default repertoire (ASCII)" : "\"" + charset + "\"";
}

} // namespace

ChangeSetCharset::ChangeSetCharset(DcmDataset& changes)
    : m_changes(changes), m_hasNonASCII(false)
{
    changes.findAndGetOFStringArray(DCM_SpecificCharacterSet, m_source, OFFalse);
    forEachElement(changes, [this](DcmElement& e) {
        if (e.getTag() != DCM_SpecificCharacterSet && hasNonASCIIText(e))
            m_hasNonASCII = true;
        return !m_hasNonASCII;
    });
}

DcmDataset* ChangeSetCharset::changesFor(const OFString& objectCharset, std::string& reason)
{
    const std::string from = trimmed(m_source);
    const std::string to = trimmed(objectCharset);
    if (!m_hasNonASCII || from == to)
        return &m_changes;
    auto found = m_converted.find(to);
    if (found != m_converted.end())
        return found->second.get();

    DcmSpecificCharacterSet converter;
    if (converter.selectCharacterSet(from.c_str(), to.c_str()).bad())
    {
        reason = "the KqR file's values in " + shown(from) + " cannot be converted to the object's character set " +
                 shown(to);
        return nullptr;
    }
    std::unique_ptr<DcmDataset> copy(new DcmDataset(m_changes));
    const bool converted = forEachElement(*copy, [&](DcmElement& e) {
        if (e.getTag() == DCM_SpecificCharacterSet || !hasNonASCIIText(e))
            return true;
        if (e.convertCharacterSet(converter).good())
            return true;
        reason = "the value of " + tagName(e.getTag()) +
                 (isValidIn(e, from) ? " cannot be represented in the object's character set " + shown(to)
                                     : " is not valid in the KqR file's character set " + shown(from));
        return false;
    });
    if (!converted)
        return nullptr;
    DcmDataset* result = copy.get();
    m_converted[to] = std::move(copy);
    return result;
}

bool isPlainASCII(const std::string& text)
{
    return isASCII(text.data(), Uint32(text.size()));
}

bool isValidUTF8(const std::string& text)
{
    size_t i = 0;
    while (i < text.size())
    {
        const unsigned char c = text[i];
        size_t extra = c < 0x80 ? 0 : (c >> 5) == 0x6 ? 1 : (c >> 4) == 0xe ? 2 : (c >> 3) == 0x1e ? 3 : 4;
        if (extra == 4 || c == 0xc0 || c == 0xc1 || c > 0xf4 || i + extra >= text.size() + (extra ? 0 : 1))
            return false;
        for (size_t k = 1; k <= extra; ++k)
            if ((OFstatic_cast(unsigned char, text[i + k]) >> 6) != 0x2)
                return false;
        i += extra + 1;
    }
    return true;
}
