// gwav: the archive's wavelet codec for people who look at image dumps.
//   gwav encode [options] <DICOM file, PGM or PPM> <stream>   a frame as a "GW10" stream
//   gwav decode [options] <stream> <PGM, PPM or PNG>          a stream (or its prefix) as an image
//   gwav info <stream>                                        what a stream's header says
// Each command has -h; errors are one line on standard error and exit status 1.
#include "dcmutils/codec/CodecRegistry.h"
#include "dcmutils/fileio.h"
#include "gwav/DicomFrame.h"
#include "gwav/RasterImage.h"
#include "gwav/StreamHeader.h"
#include "gwav/gwav.h"
#include "tools/options/ProgramOptions.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/ofstd/ofcmdln.h"
#include "dcmtk/ofstd/ofconapp.h"
#include "dcmtk/oflog/oflog.h"

#ifdef GWAV_WITH_PNG
#include <png.h>
#endif

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

const char* const PROGRAM = "gwav";
const int LONGCOL = 20;
const int SHORTCOL = 4;

OFLogger gwavLogger = OFLog::getLogger("kq.apps.gwav");

int fail(const std::string& message)
{
    OFLOG_ERROR(gwavLogger, message);
    return 1;
}

// Parses argv into cmd: false when the program must end, with the exit status in status.
// Usage goes to standard output; a parse error is one line.
bool parse(OFConsoleApplication& app, OFCommandLine& cmd, int argc, char* argv[], int& status)
{
    const OFCommandLine::E_ParseStatus result = cmd.parseLine(argc, argv);
    status = 0;
    switch (result)
    {
    case OFCommandLine::PS_NoArguments:
        app.printUsage(&cmd); // exits
        return false;
    case OFCommandLine::PS_ExclusiveOption:
        if (cmd.findOption("--help"))
            app.printUsage(&cmd); // exits
        return true;
    case OFCommandLine::PS_Normal:
        return true;
    default:
    {
        OFString text;
        cmd.getStatusString(result, text);
        status = fail(text.c_str());
        return false;
    }
    }
}

void printVersion()
{
    std::vector<std::string> more;
#ifdef GWAV_WITH_PNG
    more.push_back(std::string("libpng ") + png_get_libpng_ver(nullptr));
#endif
    ProgramOptions::printVersion(PROGRAM, more);
}

void generalOptions(OFCommandLine& cmd)
{
    cmd.setOptionColumns(LONGCOL, SHORTCOL);
    cmd.setParamColumn(LONGCOL + SHORTCOL + 4);
    cmd.addGroup("general options:", LONGCOL, SHORTCOL + 2);
    cmd.addOption("--help", "-h", "print this help text and exit", OFCommandLine::AF_Exclusive);
    cmd.addOption("--version", "print version information and exit", OFCommandLine::AF_Exclusive);
    OFLog::addOptions(cmd);
}

// Handles --version and the logger options; false when the program must end.
bool commonOptions(OFConsoleApplication& app, OFCommandLine& cmd, int& status)
{
    status = 0;
    if (cmd.hasExclusiveOption() && cmd.findOption("--version"))
    {
        printVersion();
        return false;
    }
    // one line, where DCMTK's own refusal would print several
    const std::string refusal = ProgramOptions::loggerOptionRefusal(cmd);
    if (!refusal.empty())
    {
        status = fail(refusal);
        return false;
    }
    OFLog::configureFromCommandLine(cmd, app);
    return true;
}

bool readFile(const std::string& path, std::vector<unsigned char>& content, std::string& error)
{
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr)
    {
        error = std::string(strerror(errno)) + ": " + path;
        return false;
    }
    content.clear();
    unsigned char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0)
        content.insert(content.end(), chunk, chunk + got);
    const bool ok = !ferror(file);
    fclose(file);
    if (!ok)
        error = std::string("cannot read ") + path;
    return ok;
}

// Every output is made new beside its name and renamed into place: never written through a link
// planted at the name, never seen half-written.
bool writeOutput(const std::string& path, const std::function<bool(FILE*)>& write, std::string& error)
{
    REPLACE_STEP failed = RS_DONE;
    const OFCondition cond = replaceFileThroughStream(path, temporaryNameBeside(path, "gwav"), write, failed);
    if (cond.bad())
        error = std::string(cond.text()) + ": " + path;
    return cond.good();
}

bool endsWith(const std::string& text, const char* suffix)
{
    const size_t n = strlen(suffix);
    if (text.size() < n)
        return false;
    for (size_t i = 0; i < n; ++i)
        if (tolower((unsigned char)text[text.size() - n + i]) != suffix[i])
            return false;
    return true;
}

// A PGM/PPM file starts with "P5" or "P6"; anything else is taken for DICOM.
bool isPnm(const std::string& path)
{
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr)
        return false;
    char magic[2] = {0, 0};
    const bool got = fread(magic, 1, 2, file) == 2;
    fclose(file);
    return got && magic[0] == 'P' && (magic[1] == '5' || magic[1] == '6');
}

#ifdef GWAV_WITH_PNG
// How a PNG shows the samples: all of them at full depth (raw), or grey levels windowed into 8 bits.
struct PngView
{
    bool raw = false;
    // the window in sample values (signed samples as such); width 0: the samples' own range
    double center = 0;
    double width = 0;
};

// A grey sample as its value (signed samples below zero too).
double sampleValue(const RasterImage& image, size_t i)
{
    const double shown = image.displaySample(i);
    return image.isSigned() ? shown - double(1u << (image.depth() - 1)) : shown;
}

bool writePng(const RasterImage& image, FILE* file, const PngView& view)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    // raw: samples scaled to the full range of 8 or 16 bits; otherwise grey samples windowed into
    // 8 bits, so that a viewer shows the image rather than a nearly black square
    const int channels = image.channels();
    const bool windowed = !view.raw && channels == 1;
    const int depth = image.depth() > 8 && !windowed ? 16 : 8;
    const unsigned top = (1u << image.depth()) - 1;
    const unsigned full = (1u << depth) - 1;
    double low = view.center - view.width / 2;
    double high = view.center + view.width / 2;
    if (windowed && view.width <= 0)
    {
        const size_t count = size_t(image.columns()) * image.rows();
        low = count ? sampleValue(image, 0) : 0;
        high = low;
        for (size_t i = 1; i < count; ++i)
        {
            const double v = sampleValue(image, i);
            low = v < low ? v : low;
            high = v > high ? v : high;
        }
    }
    const double span = high > low ? high - low : 1;
    std::vector<unsigned char> row(size_t(image.columns()) * channels * (depth / 8));
    bool ok = png != nullptr && info != nullptr;
    if (ok && setjmp(png_jmpbuf(png)))
        ok = false;
    else if (ok)
    {
        png_init_io(png, file);
        png_set_IHDR(png, info, image.columns(), image.rows(), depth, channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        const size_t perRow = size_t(image.columns()) * channels;
        for (int y = 0; y < image.rows(); ++y)
        {
            for (size_t i = 0; i < perRow; ++i)
            {
                const size_t at = size_t(y) * perRow + i;
                unsigned value = 0;
                if (windowed)
                {
                    const double scaled = (sampleValue(image, at) - low) * 255.0 / span;
                    value = unsigned(scaled < 0 ? 0 : scaled > 255 ? 255 : scaled + 0.5);
                }
                else
                    value = unsigned((unsigned long)image.displaySample(at) * full / top);
                if (depth == 16)
                {
                    row[2 * i] = (unsigned char)(value >> 8);
                    row[2 * i + 1] = (unsigned char)(value & 0xFF);
                }
                else
                    row[i] = (unsigned char)value;
            }
            png_write_row(png, row.data());
        }
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    return ok;
}
#endif

int encode(int argc, char* argv[])
{
    OFConsoleApplication app("gwav encode", "Code a DICOM frame, PGM or PPM image as a GW10 stream");
    OFCommandLine cmd;
    generalOptions(cmd);
    cmd.addParam("image-in", "DICOM file (8 or 16-bit grey, 8-bit RGB) or binary PGM/PPM");
    cmd.addParam("stream-out", "GW10 stream to write");
    cmd.addGroup("encoding options:", LONGCOL, SHORTCOL + 2);
    cmd.addOption("--budget", "-b", 1, "[n]umber: integer (default: 4096)", "stop the stream at n bytes (10 or more)");
    cmd.addOption("--frame", "-f", 1, "[n]umber: integer (default: 1)", "code frame n of a multi-frame object");
    int status = 0;
    if (!parse(app, cmd, argc, argv, status) || !commonOptions(app, cmd, status))
        return status;
    OFCmdUnsignedInt budget = 4096;
    OFCmdUnsignedInt frame = 1;
    if (cmd.findOption("--budget") && cmd.getValueAndCheckMin(budget, 10) != OFCommandLine::VS_Normal)
        return fail("--budget needs a number of at least 10 bytes");
    if (cmd.findOption("--frame") && cmd.getValueAndCheckMin(frame, 1) != OFCommandLine::VS_Normal)
        return fail("--frame needs a frame number of at least 1");
    const char* input = nullptr;
    const char* output = nullptr;
    cmd.getParam(1, input);
    cmd.getParam(2, output);

    RasterImage image;
    std::string error;
    bool read;
    if (isPnm(input))
        read = image.readPnm(input, error);
    else
    {
        // every decoder the archive has, JPEG 2000 included, with damaged frames refused
        CodecRegistry registry;
        read = readDicomFrame(input, frame, image, error);
    }
    if (!read)
        return fail(error);
    std::vector<unsigned char> stream(budget);
    const unsigned long length = gwavcompress(image.pixels(), image.parameter(), image.bytesPerPixel(), image.columns(),
                                              image.rows(), stream.data(), budget);
    if (length == 0)
        return 1; // the codec has reported why
    if (!writeOutput(
            output, [&](FILE* file) { return fwrite(stream.data(), 1, length, file) == length; }, error))
        return fail(error);
    OFLOG_INFO(gwavLogger, input << ": " << image.columns() << " x " << image.rows() << ", " << image.bytesPerPixel()
                                 << " bytes per pixel, parameter " << image.parameter() << " -> " << output << " ("
                                 << length << " bytes)");
    return 0;
}

int decode(int argc, char* argv[])
{
    OFConsoleApplication app("gwav decode", "Decode a GW10 stream, or its first bytes, to an image");
    OFCommandLine cmd;
    generalOptions(cmd);
    cmd.addParam("stream-in", "GW10 stream to read");
#ifdef GWAV_WITH_PNG
    cmd.addParam("image-out", "image to write: .pgm, .ppm or .pnm (binary PGM/PPM), .png");
#else
    cmd.addParam("image-out", "image to write: .pgm, .ppm or .pnm (binary PGM/PPM)");
#endif
    cmd.addGroup("decoding options:", LONGCOL, SHORTCOL + 2);
    cmd.addOption("--size", "-s", 1, "[n]umber: integer", "decode only the first n bytes of the stream");
#ifdef GWAV_WITH_PNG
    cmd.addOption("--raw", "-r", "PNG: every sample at full depth (16 bits above 8)\n"
                                 "instead of 8-bit grey levels for viewing");
    cmd.addOption("--window", "-W", 2, "[c]enter [w]idth: float",
                  "PNG: grey levels of this window (default: the\nsamples' own range)");
#endif
    int status = 0;
    if (!parse(app, cmd, argc, argv, status) || !commonOptions(app, cmd, status))
        return status;
    OFCmdUnsignedInt limit = 0;
    const bool limited = cmd.findOption("--size");
    if (limited && cmd.getValueAndCheckMin(limit, 0) != OFCommandLine::VS_Normal)
        return fail("--size needs a number of bytes");
    const char* input = nullptr;
    const char* output = nullptr;
    cmd.getParam(1, input);
    cmd.getParam(2, output);
    const std::string out(output);
    const bool png = endsWith(out, ".png");
#ifdef GWAV_WITH_PNG
    PngView view;
    view.raw = cmd.findOption("--raw");
    if (cmd.findOption("--window"))
    {
        OFCmdFloat center = 0, width = 0;
        if (cmd.getValue(center) != OFCommandLine::VS_Normal || cmd.getValueAndCheckMin(width, 1) != OFCommandLine::VS_Normal)
            return fail("--window needs a center and a width of at least 1");
        view.center = center;
        view.width = width;
    }
#endif
    if (!png && !endsWith(out, ".pgm") && !endsWith(out, ".ppm") && !endsWith(out, ".pnm"))
        return fail("unknown image format of " + out + " (.pgm, .ppm, .pnm or .png)");
#ifndef GWAV_WITH_PNG
    if (png)
        return fail("PNG output is not available in this build: " + out);
#endif

    std::vector<unsigned char> stream;
    std::string error;
    if (!readFile(input, stream, error))
        return fail(error);
    if (limited && limit < stream.size())
        stream.resize(limit);
    int parameter = 0, bytesPerPixel = 0, columns = 0, rows = 0;
    if (stream.size() < StreamHeader::SIZE || !gwavinfo(stream.data(), parameter, bytesPerPixel, columns, rows))
        return fail(std::string("Invalid compressed bitstream: ") + input);
    RasterImage image(bytesPerPixel, columns, rows, parameter);
    if (!gwavdecompress(stream.data(), image.pixels(), stream.size()))
        return 1; // the codec has reported why
#ifdef GWAV_WITH_PNG
    const bool written = writeOutput(
        out, [&](FILE* file) { return png ? writePng(image, file, view) : image.writePnm(file); }, error);
#else
    const bool written = writeOutput(out, [&](FILE* file) { return image.writePnm(file); }, error);
#endif
    if (!written)
        return fail(error);
    OFLOG_INFO(gwavLogger, input << " (" << stream.size() << " bytes) -> " << out);
    return 0;
}

int info(int argc, char* argv[])
{
    OFConsoleApplication app("gwav info", "Print the header of GW10 streams");
    OFCommandLine cmd;
    generalOptions(cmd);
    cmd.addParam("stream-in", "GW10 stream to read", OFCmdParam::PM_MultiMandatory);
    int status = 0;
    if (!parse(app, cmd, argc, argv, status) || !commonOptions(app, cmd, status))
        return status;
    for (int i = 1; i <= cmd.getParamCount(); ++i)
    {
        const char* input = nullptr;
        cmd.getParam(i, input);
        std::vector<unsigned char> stream;
        std::string error;
        if (!readFile(input, stream, error))
            return fail(error);
        int parameter = 0, bytesPerPixel = 0, columns = 0, rows = 0;
        if (stream.size() < StreamHeader::SIZE || !gwavinfo(stream.data(), parameter, bytesPerPixel, columns, rows))
            return fail(std::string("Invalid compressed bitstream: ") + input);
        printf("%s: %d x %d, %d bytes per pixel, parameter %d, %lu bytes\n", input, columns, rows, bytesPerPixel,
               parameter, (unsigned long)stream.size());
    }
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc >= 2)
    {
        const std::string command = argv[1];
        // the command's own command line starts with the command, named "gwav <command>"
        if (command == "encode")
            return encode(argc - 1, argv + 1);
        if (command == "decode")
            return decode(argc - 1, argv + 1);
        if (command == "info")
            return info(argc - 1, argv + 1);
    }
    OFConsoleApplication app(PROGRAM, "Wavelet codec of the archive's image dumps (GW10 streams)");
    OFCommandLine cmd;
    generalOptions(cmd);
    cmd.addParam("command", "encode, decode or info (gwav <command> -h for its options)");
    cmd.addParam("arguments", "the command's options and files", OFCmdParam::PM_MultiOptional);
    int status = 0;
    if (!parse(app, cmd, argc, argv, status) || !commonOptions(app, cmd, status))
        return status;
    const char* command = nullptr;
    cmd.getParam(1, command);
    const std::string name(command);
    if (name == "encode" || name == "decode" || name == "info")
        return fail("options go after the command: gwav " + name + " [options] ...");
    return fail("unknown command: " + name + " (encode, decode or info)");
}
