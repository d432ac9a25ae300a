// The filter's instances for the sample types of the codec.
#include "gwav/Filter4_2.h"

template class Filter4_2<short>;
template class Filter4_2<long>;
