// Applies the study, series and instance modifications of a KqR change dataset to a dataset.
#ifndef SOFTEDIT_H
#define SOFTEDIT_H

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdatset.h"
#include "dcmtk/dcmdata/dcsequen.h"

#include <list>

// Element numbers of the change sequences in the "KQ group A" block.
#define KQ_CHANGE_SEQUENCE 0x62
#define KQ_SERIES_SEQUENCE 0x63
#define KQ_INSTANCE_SEQUENCE 0x64

OFCondition applyModifications(DcmDataset& target, DcmDataset& changes, std::list<DcmTagKey>* modified);
OFCondition applyModifications(DcmDataset& target, DcmDataset& changes);
OFCondition applyStudyModification(DcmDataset& target, DcmItem& changeItem, DcmSequenceOfItems*& seriesSequence,
                                   std::list<DcmTagKey>* modified, bool nonImage);
OFCondition applySeriesModification(DcmDataset& target, DcmSequenceOfItems& seriesSequence,
                                    DcmSequenceOfItems*& instanceSequence, std::list<DcmTagKey>* modified,
                                    bool nonImage);
OFCondition applyInstanceModification(DcmDataset& target, DcmSequenceOfItems& instanceSequence,
                                      std::list<DcmTagKey>* modified, bool nonImage);

// True for the SOP classes whose objects keep their own Modality under a soft edit.
bool isNonImageSOPClass(const char* sopClassUID);

#endif
