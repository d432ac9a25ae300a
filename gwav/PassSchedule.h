// The order of the coding passes of a "GW10" stream.
#ifndef GWAV_PASSSCHEDULE_H
#define GWAV_PASSSCHEDULE_H

#include "gwav/Subband.h"

#include <vector>

// The three passes of a bit plane.
enum PASS_KIND
{
    PASS_PROPAGATION = 0,
    PASS_REFINEMENT = 1,
    PASS_CLEANUP = 2
};

// One pass over one bit plane of one band.
struct CodingPass
{
    int m_band;
    int m_plane;
    PASS_KIND m_kind;
};

// The passes over planes planes-1 down to 0 of every band, most useful first: a bit of plane p
// in a band of synthesis gain g is worth about g 2^p in the image, so passes go by decreasing
// p + log2 g (1/16 bit steps); the propagation and refinement passes of a plane count
// propagationOffset/16 and refinementOffset/16 of a plane more than its cleanup pass (both
// between -15 and 15, so that a plane's passes follow the cleanup of the plane above). Ties
// keep coarse bands first.
std::vector<CodingPass> passSchedule(const std::vector<Subband>& bands, int planes, int propagationOffset,
                                     int refinementOffset);

#endif
