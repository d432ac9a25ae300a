// The wavelet codec's three calls: compress an image into a "GW10" stream, read a stream's
// header, decompress a stream.
//
// A stream is a ten-byte header (bytes 0-3 "GW10", byte 4 bytes per pixel, byte 5 the image
// parameter, bytes 6-7 columns and 8-9 rows, unsigned 16-bit little endian) and the coded
// data from byte 10. The data is embedded: the encoder, told its budget, stops and flushes inside
// it, and every prefix of a stream decodes to the best image that prefix can give, the quality
// growing with its length (a single byte may move a few estimates the wrong way; a prefix twice
// as long is never worse). A stream shorter than its budget is complete, lossless; whatever
// follows it in a buffer is ignored by the decoder. The same image always gives the same bytes.
//
// Samples: 1 byte per pixel is an 8-bit grey level; 2 bytes a 16-bit sample in the machine's byte
// order (read as signed or unsigned, whichever spans the smaller range; the decoder gives the
// samples back the same way); 3 bytes interleaved 8-bit RGB. The image parameter is stored and
// returned, never interpreted by the codec. The transform never runs on 16-bit planes, which
// 16-bit samples overflow: the encoder uses 32-bit planes (Wavelet<int>; up to eight levels of
// 16-bit samples stay below 2^24, see Filter4_2), the decoder 32-bit planes when every decoded
// coefficient is below 2^18 and 64-bit planes (Wavelet<long>) otherwise, so that no stream,
// however damaged, overflows them.
//
// Errors are reported through the DICOM toolkit's dcmdata logger and the call's result; no
// exception leaves these calls.
#ifndef GWAV_GWAVCODEC_H
#define GWAV_GWAVCODEC_H

// Compresses columns x rows pixels of bytesPerPixel (1, 2 or 3) bytes each into out, which must
// hold budget bytes (the caller owns both buffers). Only the low byte of parameter is kept.
// Returns the stream's length (at most budget); 0 on failure: no pixels or output, a size
// outside 1-65535, bytes per pixel other than 1-3, a budget below 10 bytes, or too little
// memory.
unsigned long gwavcompress(void* pixels, int parameter, int bytesPerPixel, int columns, int rows, unsigned char* out,
                           unsigned long budget);

// Reads the header at stream (at least 10 bytes). Returns true and fills the four values when
// the header is that of a "GW10" stream of an image the codec can hold; false, leaving them
// unchanged, otherwise. Reports nothing.
bool gwavinfo(unsigned char* stream, int& parameter, int& bytesPerPixel, int& columns, int& rows);

// Decodes the first size bytes of stream into out, which must hold columns x rows x bytes per
// pixel bytes as the header gives them (both buffers belong to the caller). Nothing beyond size
// bytes is read. Returns false, after reporting "Invalid compressed bitstream", for a stream
// shorter than 10 bytes, without the magic, or inconsistent with its header; false also when
// memory is short.
bool gwavdecompress(unsigned char* stream, unsigned char* out, unsigned long size);

#endif
