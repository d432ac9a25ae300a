// The order of the coding passes of a "GW10" stream.
#ifndef GWAV_PASSSCHEDULE_H
#define GWAV_PASSSCHEDULE_H

#include "gwav/Subband.h"

#include <vector>

// One pass: significance or refinement of one bit plane of one band.
struct CodingPass
{
    int m_band;
    int m_plane;
    bool m_refinement;
};

// The passes over planes planes-1 down to 0 of every band, most useful first: a bit of plane p
// in a band of synthesis gain g is worth about g 2^p in the image, so passes go by decreasing
// p + log2 g (1/16 bit steps); a refinement pass counts refinementOffset/16 of a plane more or
// less than the significance pass of its plane. Ties keep coarse bands first.
std::vector<CodingPass> passSchedule(const std::vector<Subband>& bands, int planes, int refinementOffset);

#endif
