#include "dcmutils/DicomStreamScan.h"

#include "dcmtk/dcmdata/dcerror.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

makeOFConditionConst(EC_NestingTooDeep, OFM_dcmdata, 0x7f10, OF_error, "Sequences nested deeper than 256 levels");
makeOFConditionConst(EC_DeflateBomb, OFM_dcmdata, 0x7f11, OF_error,
                     "Deflated data set inflates to more than 100 times its size (a decompression bomb)");

namespace {

const unsigned long long UNDEFINED = std::numeric_limits<unsigned long long>::max();
const Uint32 UNDEFINED_LENGTH = 0xffffffffu;

// Bytes read one after the other, from the file or inflated from it.
class ByteSource
{
public:
    virtual ~ByteSource() {}
    // Exactly count bytes, or false.
    virtual bool read(void* buffer, size_t count) = 0;
    // Passes over count bytes; false when the data ends first.
    virtual bool skip(unsigned long long count) = 0;
    // Bytes passed so far.
    virtual unsigned long long position() const = 0;
    // True when no byte is left.
    virtual bool atEnd() = 0;
};

// The file's own bytes, through a small window so that headers cost no system call each.
class FileSource : public ByteSource
{
public:
    explicit FileSource(const InputFile& file) : m_file(file), m_offset(0) {}

    bool read(void* buffer, size_t count) override { return readSome(buffer, count) == count; }
    // Up to count bytes: fewer only at the end of the file (or on a read error).
    size_t readSome(void* buffer, size_t count)
    {
        char* out = static_cast<char*>(buffer);
        size_t done = 0;
        while (done < count)
        {
            const char* window = nullptr;
            size_t available = 0;
            if (!bytesAt(window, available))
                break;
            const size_t n = std::min(count - done, available);
            memcpy(out + done, window, n);
            done += n;
            m_offset += n;
        }
        return done;
    }
    bool skip(unsigned long long count) override
    {
        if (count > m_file.size() - std::min(m_offset, m_file.size()))
            return false;
        m_offset += count;
        return true;
    }
    unsigned long long position() const override { return m_offset; }
    bool atEnd() override { return m_offset >= m_file.size(); }
    void seek(unsigned long long offset) { m_offset = offset; }

private:
    // The bytes from the current offset that are at hand, reading the next window when needed.
    bool bytesAt(const char*& window, size_t& available)
    {
        if (m_offset >= m_file.size())
            return false;
        if (m_file.inMemory())
        {
            window = m_file.bytes() + m_offset;
            available = size_t(m_file.size() - m_offset);
            return true;
        }
        if (m_offset < m_windowStart || m_offset >= m_windowStart + m_window.size())
        {
            m_window.resize(64 * 1024);
            bool end = false;
            m_window.resize(m_file.read(m_offset, m_window.data(), m_window.size(), end));
            m_windowStart = m_offset;
            if (m_window.empty())
                return false;
        }
        window = m_window.data() + (m_offset - m_windowStart);
        available = size_t(m_windowStart + m_window.size() - m_offset);
        return true;
    }

    const InputFile& m_file;
    unsigned long long m_offset;
    std::vector<char> m_window;
    unsigned long long m_windowStart = 0;
};

// The inflated bytes of a deflated data set, counted and bounded.
class InflateSource : public ByteSource
{
public:
    InflateSource(FileSource& compressed, unsigned long long limit) : m_compressed(compressed), m_limit(limit)
    {
        memset(&m_stream, 0, sizeof(m_stream));
        m_ok = inflateInit2(&m_stream, -MAX_WBITS) == Z_OK; // raw deflate, as the transfer syntax has it
    }
    ~InflateSource() override { inflateEnd(&m_stream); }

    bool read(void* buffer, size_t count) override
    {
        char* out = static_cast<char*>(buffer);
        while (count > 0)
        {
            if (m_used == m_out.size() && !produce())
                return false;
            const size_t n = std::min(count, m_out.size() - m_used);
            memcpy(out, m_out.data() + m_used, n);
            m_used += n;
            out += n;
            count -= n;
        }
        return true;
    }
    bool skip(unsigned long long count) override
    {
        while (count > 0)
        {
            if (m_used == m_out.size() && !produce())
                return false;
            const size_t n = size_t(std::min<unsigned long long>(count, m_out.size() - m_used));
            m_used += n;
            count -= n;
        }
        return true;
    }
    unsigned long long position() const override { return m_produced - (m_out.size() - m_used); }
    bool atEnd() override { return m_used == m_out.size() && !produce(); }
    bool bomb() const { return m_bomb; }
    unsigned long long produced() const { return m_produced; }

private:
    bool produce()
    {
        if (!m_ok || m_finished)
            return false;
        m_out.resize(256 * 1024);
        m_used = 0;
        size_t made = 0;
        while (made == 0)
        {
            if (m_stream.avail_in == 0)
            {
                m_in.resize(65536);
                const size_t got = m_compressed.readSome(m_in.data(), m_in.size());
                if (got == 0)
                {
                    m_finished = true;
                    break;
                }
                m_stream.next_in = reinterpret_cast<Bytef*>(m_in.data());
                m_stream.avail_in = uInt(got);
            }
            m_stream.next_out = reinterpret_cast<Bytef*>(m_out.data());
            m_stream.avail_out = uInt(m_out.size());
            const int rc = inflate(&m_stream, Z_NO_FLUSH);
            made = m_out.size() - m_stream.avail_out;
            if (rc == Z_STREAM_END)
                m_finished = true;
            else if (rc != Z_OK && rc != Z_BUF_ERROR)
            {
                m_ok = false;
                break;
            }
            if (m_finished)
                break;
        }
        m_out.resize(made);
        m_produced += made;
        if (m_produced > m_limit)
        {
            m_bomb = true;
            m_ok = false;
            return false;
        }
        return made > 0;
    }

    FileSource& m_compressed;
    unsigned long long m_limit;
    z_stream m_stream;
    bool m_ok = false;
    bool m_finished = false;
    bool m_bomb = false;
    std::vector<char> m_in;
    std::vector<char> m_out;
    size_t m_used = 0;
    unsigned long long m_produced = 0;
};

// How the elements of a data set or item are encoded.
struct Encoding
{
    bool explicitVR = true;
    bool bigEndian = false;
};

Uint16 get16(const unsigned char* p, bool bigEndian)
{
    return bigEndian ? Uint16(p[0] << 8 | p[1]) : Uint16(p[1] << 8 | p[0]);
}

Uint32 get32(const unsigned char* p, bool bigEndian)
{
    return bigEndian ? Uint32(p[0]) << 24 | Uint32(p[1]) << 16 | Uint32(p[2]) << 8 | p[3]
                     : Uint32(p[3]) << 24 | Uint32(p[2]) << 16 | Uint32(p[1]) << 8 | p[0];
}

// VRs with a reserved field and a 32-bit length in explicit VR.
bool hasLongLength(const char vr[2])
{
    static const char* const vrs[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ", "SV", "UC", "UN", "UR", "UT", "UV"};
    for (const char* v : vrs)
        if (vr[0] == v[0] && vr[1] == v[1])
            return true;
    return false;
}

// One open sequence or item: where it ends (UNDEFINED: at its delimiter) and how its content is
// encoded; a sequence of encapsulated fragments has items that are plain values.
struct Frame
{
    bool sequence;
    bool fragments;
    unsigned long long end;
    Encoding encoding;
};

enum ScanResult
{
    SR_DONE,
    SR_UNSURE,
    SR_TOO_DEEP
};

// The element walk of a data set from the source's position to its end.
ScanResult walk(ByteSource& source, Encoding datasetEncoding, unsigned& deepest)
{
    std::vector<Frame> stack;
    unsigned depth = 0;
    for (;;)
    {
        const unsigned long long pos = source.position();
        while (!stack.empty() && stack.back().end != UNDEFINED && pos >= stack.back().end)
        {
            if (pos > stack.back().end)
                return SR_UNSURE;
            depth -= stack.back().sequence ? 1 : 0;
            stack.pop_back();
        }
        if (source.atEnd())
            return stack.empty() ? SR_DONE : SR_UNSURE;
        const Encoding encoding = stack.empty() ? datasetEncoding : stack.back().encoding;
        unsigned char head[8];
        if (!source.read(head, 4))
            return SR_UNSURE;
        const Uint16 group = get16(head, encoding.bigEndian);
        const Uint16 element = get16(head + 2, encoding.bigEndian);
        const bool inSequence = !stack.empty() && stack.back().sequence;

        if (group == 0xfffe)
        {
            // items and delimiters carry a 32-bit length and no VR in every encoding
            if (!source.read(head + 4, 4))
                return SR_UNSURE;
            const Uint32 length = get32(head + 4, encoding.bigEndian);
            if (element == 0xe000 && inSequence)
            {
                if (stack.back().fragments)
                {
                    if (length == UNDEFINED_LENGTH || !source.skip(length))
                        return SR_UNSURE;
                    continue;
                }
                stack.push_back(Frame{false, false, length == UNDEFINED_LENGTH ? UNDEFINED : source.position() + length,
                                      encoding});
                continue;
            }
            if (element == 0xe0dd && inSequence && stack.back().end == UNDEFINED)
            {
                --depth;
                stack.pop_back();
                continue;
            }
            if (element == 0xe00d && !stack.empty() && !inSequence && stack.back().end == UNDEFINED)
            {
                stack.pop_back();
                continue;
            }
            return SR_UNSURE;
        }
        if (inSequence)
            return SR_UNSURE; // a sequence holds items only

        Uint32 length = 0;
        bool container = false;
        bool fragments = false;
        Encoding inner = encoding;
        if (encoding.explicitVR)
        {
            if (!source.read(head + 4, 2))
                return SR_UNSURE;
            const char vr[2] = {char(head[4]), char(head[5])};
            if (vr[0] < 'A' || vr[0] > 'Z' || vr[1] < 'A' || vr[1] > 'Z')
                return SR_UNSURE;
            if (hasLongLength(vr))
            {
                unsigned char field[6];
                if (!source.read(field, 6))
                    return SR_UNSURE;
                length = get32(field + 2, encoding.bigEndian);
            }
            else
            {
                unsigned char field[2];
                if (!source.read(field, 2))
                    return SR_UNSURE;
                length = get16(field, encoding.bigEndian);
            }
            const bool sq = vr[0] == 'S' && vr[1] == 'Q';
            const bool un = vr[0] == 'U' && vr[1] == 'N';
            if (length == UNDEFINED_LENGTH)
            {
                container = true;
                fragments = !sq && !un;
                if (un)
                    inner = Encoding{false, false}; // an unknown sequence is read as implicit VR little endian
            }
            else
                container = sq;
        }
        else
        {
            unsigned char field[4];
            if (!source.read(field, 4))
                return SR_UNSURE;
            length = get32(field, encoding.bigEndian);
            if (length == UNDEFINED_LENGTH)
            {
                container = true;
                fragments = group == 0x7fe0 && element == 0x0010;
            }
        }
        if (!container && !encoding.explicitVR && length >= 8)
        {
            // in implicit VR a sequence of defined length shows itself by its first item
            unsigned char first[4];
            if (!source.read(first, 4))
                return SR_UNSURE;
            container = get16(first, encoding.bigEndian) == 0xfffe && get16(first + 2, encoding.bigEndian) == 0xe000;
            length -= 4;
            if (container)
            {
                // the item's header is read here: push the sequence, then treat it as its first item
                unsigned char itemLength[4];
                if (!source.read(itemLength, 4))
                    return SR_UNSURE;
                const unsigned long long sequenceEnd = source.position() + length - 4;
                if (++depth > DicomStreamScan::MAX_DEPTH)
                    return SR_TOO_DEEP;
                deepest = std::max(deepest, depth);
                stack.push_back(Frame{true, false, sequenceEnd, encoding});
                const Uint32 l = get32(itemLength, encoding.bigEndian);
                stack.push_back(Frame{false, false, l == UNDEFINED_LENGTH ? UNDEFINED : source.position() + l, encoding});
                continue;
            }
        }
        if (!container)
        {
            if (!source.skip(length))
                return SR_UNSURE;
            continue;
        }
        if (++depth > DicomStreamScan::MAX_DEPTH)
            return SR_TOO_DEEP;
        deepest = std::max(deepest, depth);
        stack.push_back(Frame{true, fragments, length == UNDEFINED_LENGTH ? UNDEFINED : source.position() + length,
                              inner});
    }
}

} // namespace

OFCondition DicomStreamScan::scan(const InputFile& file)
{
    m_inflatedSize = 0;
    m_depth = 0;
    FileSource source(file);
    Encoding dataset;
    bool deflated = false;
    unsigned char preamble[132];
    if (source.read(preamble, sizeof(preamble)) && memcmp(preamble + 128, "DICM", 4) == 0)
    {
        // the meta header: explicit VR little endian elements of group 0002
        std::string transferSyntax;
        for (;;)
        {
            const unsigned long long at = source.position();
            unsigned char head[8];
            if (!source.read(head, 8) || get16(head, false) != 0x0002)
            {
                source.seek(at);
                break;
            }
            const char vr[2] = {char(head[4]), char(head[5])};
            Uint32 length = get16(head + 6, false);
            if (hasLongLength(vr))
            {
                unsigned char field[4];
                if (!source.read(field, 4))
                    return EC_Normal;
                length = get32(field, false);
            }
            if (length == UNDEFINED_LENGTH || length > 1024 * 1024)
                return EC_Normal;
            if (get16(head + 2, false) == 0x0010)
            {
                transferSyntax.resize(length);
                if (!source.read(&transferSyntax[0], length))
                    return EC_Normal;
                while (!transferSyntax.empty() && (transferSyntax.back() == '\0' || transferSyntax.back() == ' '))
                    transferSyntax.pop_back();
            }
            else if (!source.skip(length))
                return EC_Normal;
        }
        if (transferSyntax == "1.2.840.10008.1.2")
            dataset.explicitVR = false;
        else if (transferSyntax == "1.2.840.10008.1.2.2")
            dataset.bigEndian = true;
        else if (transferSyntax == "1.2.840.10008.1.2.1.99")
            deflated = true;
    }
    else
    {
        // no meta header: the first element tells explicit from implicit VR (little endian)
        source.seek(0);
        unsigned char head[6];
        if (!source.read(head, 6))
            return EC_Normal;
        dataset.explicitVR = head[4] >= 'A' && head[4] <= 'Z' && head[5] >= 'A' && head[5] <= 'Z';
        source.seek(0);
    }

    ScanResult result;
    if (deflated)
    {
        const unsigned long long limit = std::max(MAX_INFLATE_FLOOR, MAX_INFLATE_RATIO * file.size());
        InflateSource inflated(source, limit);
        result = walk(inflated, dataset, m_depth);
        m_inflatedSize = inflated.produced();
        if (inflated.bomb())
            return EC_DeflateBomb;
    }
    else
        result = walk(source, dataset, m_depth);
    return result == SR_TOO_DEEP ? OFCondition(EC_NestingTooDeep) : OFCondition(EC_Normal);
}

OFCondition scanDicomFile(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return EC_Normal;
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        close(fd);
        return EC_Normal;
    }
    InputFile file(fd, (unsigned long long)status.st_size);
    DicomStreamScan scan;
    return scan.scan(file);
}
