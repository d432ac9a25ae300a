#include "objdiff/ObjDiffRawImage.h"

ObjDiffRawImage::ObjDiffRawImage(CImageProcess* process, int frameNumber)
  : CRawImage(process, frameNumber)
{
}

void ObjDiffRawImage::optimizeBitmap()
{
}
