// The lines one object of a run prints, held back until its turn comes, in the order they were
// written across standard output and standard error.
#ifndef APPLYCHANGES_OBJECTREPORT_H
#define APPLYCHANGES_OBJECTREPORT_H

#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

/** Two streams, out() and err(), whose text is kept as one sequence of pieces, each marked with
 *  its stream, so that write() reproduces exactly what a run that printed at once would have
 *  shown, also with both streams on one terminal or in one file. The toolkit's own log lines join
 *  the report of the object being worked on by the thread that logs (ReportLog).
 */
class ObjectReport
{
public:
    ObjectReport();

    /** What goes to standard output. */
    std::ostream& out() { return m_out; }
    /** What goes to standard error. */
    std::ostream& err() { return m_err; }

    /** Writes the held text to standard output and standard error in its order, flushing at
     *  each change of stream, and forgets it.
     *  @return false when standard output or standard error could not be written (errno set) */
    bool write();
    /** Moves the text held by other to the end of this report. */
    void append(ObjectReport& other);
    /** Copies the text held by other to the end of this report. */
    void appendCopy(const ObjectReport& other);
    /** Forgets the held text (an object the run never reached). */
    void discard() { m_pieces.clear(); }
    /** True when nothing is held. */
    bool empty() const { return m_pieces.empty(); }
    /** The lines held for standard error, one after the other. */
    std::string errorText() const;

private:
    ObjectReport(const ObjectReport&) = delete;
    ObjectReport& operator=(const ObjectReport&) = delete;

    /// appends what one of the streams is given to the report
    class Piecewise : public std::streambuf
    {
    public:
        Piecewise(ObjectReport& report, bool toError) : m_report(report), m_toError(toError) {}

    protected:
        int_type overflow(int_type c) override;
        std::streamsize xsputn(const char* s, std::streamsize n) override;

    private:
        ObjectReport& m_report;
        bool m_toError;
    };

    void append(bool toError, const char* text, size_t size);

    std::vector<std::pair<bool, std::string>> m_pieces;
    Piecewise m_outBuffer;
    Piecewise m_errBuffer;
    std::ostream m_out;
    std::ostream m_err;
};

/** Routes the toolkit's log (the dcmdata logger's warnings and errors, formatted as the
 *  toolkit's own console does, "W: ...") into the report of the object the logging thread works
 *  on, and straight to standard error when it works on none.
 */
class ReportLog
{
public:
    /** Replaces the appenders of the toolkit's root logger; called once at start. */
    static void install();

    /** While it lives, the calling thread's log lines go into report. */
    class Scope
    {
    public:
        explicit Scope(ObjectReport& report);
        ~Scope();

    private:
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ObjectReport* m_previous;
    };
};

#endif
