#include "common/imgproc/src/dicomtagparserdata.h"

IDicomTagParserData::IDicomTagParserData()
  : m_start(0)
  , m_key(0xFFFF, 0xFFFF)
  , m_end(0)
  , m_next(nullptr)
{
}

IDicomTagParserData::~IDicomTagParserData()
{
}
