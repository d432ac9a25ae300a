#include "applychanges/ObjectReport.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/oflog/appender.h"
#include "dcmtk/oflog/layout.h"
#include "dcmtk/oflog/logger.h"
#include "dcmtk/oflog/oflog.h"

#include <cerrno>
#include <iostream>
#include <sstream>

namespace {

thread_local ObjectReport* currentReport = nullptr;

// Formats each event as the toolkit's default console appender does and hands it to the report
// of the logging thread, or to standard error.
class ReportAppender : public dcmtk::log4cplus::Appender
{
public:
    ReportAppender()
    {
        OFunique_ptr<dcmtk::log4cplus::Layout> pattern(new dcmtk::log4cplus::PatternLayout("%P: %m%n"));
        setLayout(OFmove(pattern));
    }
    ~ReportAppender() override { destructorImpl(); }
    void close() override {}

protected:
    void append(const dcmtk::log4cplus::spi::InternalLoggingEvent& event) override
    {
        STD_NAMESPACE ostringstream line;
        layout->formatAndAppend(line, event);
        if (currentReport)
            currentReport->err() << line.str();
        else
            std::cerr << line.str() << std::flush;
    }
};

} // namespace

ObjectReport::ObjectReport()
    : m_outBuffer(*this, false), m_errBuffer(*this, true), m_out(&m_outBuffer), m_err(&m_errBuffer)
{
}

void ObjectReport::append(bool toError, const char* text, size_t size)
{
    if (size == 0)
        return;
    if (m_pieces.empty() || m_pieces.back().first != toError)
        m_pieces.emplace_back(toError, std::string());
    m_pieces.back().second.append(text, size);
}

ObjectReport::Piecewise::int_type ObjectReport::Piecewise::overflow(int_type c)
{
    if (!traits_type::eq_int_type(c, traits_type::eof()))
    {
        const char ch = traits_type::to_char_type(c);
        m_report.append(m_toError, &ch, 1);
    }
    return traits_type::not_eof(c);
}

std::streamsize ObjectReport::Piecewise::xsputn(const char* s, std::streamsize n)
{
    m_report.append(m_toError, s, size_t(n));
    return n;
}

void ObjectReport::append(ObjectReport& other)
{
    for (const auto& piece : other.m_pieces)
        append(piece.first, piece.second.data(), piece.second.size());
    other.m_pieces.clear();
}

std::string ObjectReport::errorText() const
{
    std::string text;
    for (const auto& piece : m_pieces)
        if (piece.first)
            text += piece.second;
    return text;
}

void ObjectReport::appendCopy(const ObjectReport& other)
{
    for (const auto& piece : other.m_pieces)
        append(piece.first, piece.second.data(), piece.second.size());
}

bool ObjectReport::write()
{
    bool ok = true;
    for (const auto& piece : m_pieces)
    {
        std::ostream& stream = piece.first ? std::cerr : std::cout;
        errno = 0;
        stream.write(piece.second.data(), std::streamsize(piece.second.size()));
        stream.flush();
        if (!stream)
        {
            ok = false;
            break;
        }
    }
    m_pieces.clear();
    return ok;
}

void ReportLog::install()
{
    dcmtk::log4cplus::Logger root = dcmtk::log4cplus::Logger::getRoot();
    OFLog::getLogger("dcmtk.dcmdata"); // the toolkit's own set-up first, which this replaces
    root.removeAllAppenders();
    root.addAppender(dcmtk::log4cplus::SharedAppenderPtr(new ReportAppender));
}

ReportLog::Scope::Scope(ObjectReport& report) : m_previous(currentReport)
{
    currentReport = &report;
}

ReportLog::Scope::~Scope()
{
    currentReport = m_previous;
}
