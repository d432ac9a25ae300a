// Shared by the fuzz targets: quiet output, and inputs written to a scratch file for the parts of
// the system that read files by name.
#ifndef FUZZSUPPORT_H
#define FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace kqfuzz {

// Registers the private dictionary, silences the toolkit's logger and the program's own output
// (standard output and the iostreams); the fuzzer's reports still reach standard error.
void initialize();

// Writes the bytes to this process's scratch file of the given name and returns its path.
std::string writeScratch(const std::string& name, const uint8_t* data, size_t size);

// Stops the run with a message when an invariant does not hold: a finding.
void require(bool condition, const char* what);

} // namespace kqfuzz

#endif
