// Encoding and decoding of whole "GW10" streams.
#ifndef GWAV_STREAMCODER_H
#define GWAV_STREAMCODER_H

#include <cstddef>

// The choices both sides of a stream must agree on. The defaults are the stream format; other
// values exist for experiments and give streams of their own.
struct StreamSettings
{
    // Wavelet levels at most (10 at most: see Filter4_2). Wavelet's own default is 5; the stream
    // applies up to 8, its coding being its own: the extra levels of a large dump's low band
    // cost nothing in time and make the 4096-byte thumbnails sharper.
    int m_maxLevels = 8;
    int m_propagationOffset = 8; // propagation passes ahead of their cleanup pass, 1/16 plane
    int m_refinementOffset = 0;  // refinement passes ahead of their cleanup pass, 1/16 plane
    int m_firstOffset = 7;       // reconstruction inside a first interval, sixteenths of it
    int m_laterOffset = 7;       // reconstruction inside later intervals, sixteenths
};

// Outcome of decoding.
enum STREAM_STATUS
{
    STREAM_OK = 0,
    STREAM_INVALID = 1,   // not a "GW10" stream, or inconsistent with its header
    STREAM_NO_MEMORY = 2, // the image does not fit in memory
};

// Codes columns x rows pixels of bytesPerPixel bytes into out, at most budget bytes (header
// included). The stream is embedded: it stops where the budget ends, and every prefix of it
// decodes. Returns its length; 0 when the arguments describe no image or budget is below 10.
unsigned long encodeStream(const void* pixels, int parameter, int bytesPerPixel, int columns, int rows,
                           unsigned char* out, unsigned long budget, const StreamSettings& settings = StreamSettings(),
                           bool* noMemory = nullptr);

// Decodes the first size bytes of stream into out (columns x rows x bytes per pixel bytes, as
// the header says). Nothing beyond size bytes is read.
STREAM_STATUS decodeStream(const unsigned char* stream, size_t size, unsigned char* out,
                           const StreamSettings& settings = StreamSettings());

#endif
