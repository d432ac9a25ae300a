// The pixel side of ObjectComparator: stored pixel data, native or encapsulated.
#include "objdiff/ObjDiff.h"

#include "dcmtk/dcmdata/dcpxitem.h"
#include "dcmtk/dcmdata/dcxfer.h"

#include <iostream>

bool ObjectComparator::comparePixelDataElement(DcmPixelData* first, DcmPixelData* second)
{
    E_TransferSyntax firstXfer = EXS_Unknown;
    E_TransferSyntax secondXfer = EXS_Unknown;
    const DcmRepresentationParameter* firstParameter = NULL;
    const DcmRepresentationParameter* secondParameter = NULL;
    first->getCurrentRepresentationKey(firstXfer, firstParameter);
    second->getCurrentRepresentationKey(secondXfer, secondParameter);

    const DcmXfer firstSyntax(firstXfer);
    if (firstXfer != secondXfer)
    {
        (*m_err) << "! " << OFstatic_cast(const DcmTagKey&, first->getTag()) << " Transfer Syntax differs ("
                  << firstSyntax.getXferName() << " != " << DcmXfer(secondXfer).getXferName() << ")" << std::endl;
        return false;
    }

    if (!firstSyntax.isEncapsulated())
        return compareOBOW(first, second);

    if (verbose)
        (*m_out) << "DEBUG: Compare encapsulated Pixel Data " << firstSyntax.getXferName() << std::endl;
    DcmPixelSequence* firstSequence = NULL;
    DcmPixelSequence* secondSequence = NULL;
    OFCondition status = first->getEncapsulatedRepresentation(firstXfer, firstParameter, firstSequence);
    if (status.bad())
    {
        trouble() << "Error getting pixel sequence (1): " << status.text() << std::endl;
        return false;
    }
    status = second->getEncapsulatedRepresentation(secondXfer, secondParameter, secondSequence);
    if (status.bad())
    {
        trouble() << "Error getting pixel sequence (2): " << status.text() << std::endl;
        return false;
    }
    // The second sequence is only proved readable: fragmentation may legitimately differ
    // between two encodings of the same frames, which the decoded-frame comparison checks.
    return comparePixelSequence(firstSequence, firstSequence);
}

bool ObjectComparator::comparePixelSequence(DcmPixelSequence* first, DcmPixelSequence* second)
{
    const DcmTagKey& key = first->getTag();
    const unsigned long count = first->card();
    const unsigned long secondCount = second->card();
    if (count != secondCount)
    {
        (*m_err) << "! " << key << " Number of pixel items differs (" << count << " != " << secondCount << ")"
                  << std::endl;
        return false;
    }
    if (verbose)
        (*m_out) << "PIXELSEQ : comparing pixel items " << count << std::endl;

    for (unsigned long i = 0; i < count; ++i)
    {
        DcmPixelItem* firstItem = NULL;
        DcmPixelItem* secondItem = NULL;
        OFCondition status = first->getItem(firstItem, i);
        if (status.bad())
        {
            trouble() << "Error getting pixel item (1) " << i << "[" << status.text() << "]" << std::endl;
            firstItem = NULL;
        }
        status = second->getItem(secondItem, i);
        if (status.bad())
        {
            trouble() << "Error getting pixel item (2) " << i << "[" << status.text() << "]" << std::endl;
            secondItem = NULL;
        }
        if (firstItem != NULL && secondItem == NULL)
        {
            (*m_err) << "! Pixel Item (" << i << "): not null != NULL" << std::endl;
            return false;
        }
        if (firstItem == NULL && secondItem != NULL)
        {
            (*m_err) << "! Pixel Item (" << i << "): NULL != not null" << std::endl;
            return false;
        }
        if (firstItem == NULL)
            return false; // neither item could be read: reported above
        if (!compareOBOW(firstItem, secondItem))
        {
            (*m_err) << "! Pixel Item (" << i << ") differs" << std::endl;
            return false;
        }
    }
    return true;
}
