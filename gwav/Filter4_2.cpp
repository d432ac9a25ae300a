// The filter's instances: 16-bit planes (8-bit samples), 32-bit planes (the codec's, when the
// values stay far enough from overflow) and 64-bit planes.
#include "gwav/Filter4_2.h"

template class Filter4_2<short>;
template class Filter4_2<int>;
template class Filter4_2<long>;
