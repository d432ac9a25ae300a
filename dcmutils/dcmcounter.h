// The counter of the dataset utilities, shared by UID generation, safe writing and task files.
// Not for use outside the dcmutils library.
#ifndef DCMCOUNTER_H
#define DCMCOUNTER_H

// Advances the module counter (see dcmutils.h) through 1..999, wrapping to 1, and returns it.
int nextCounter();

#endif
