// The tag handler registry and walker: registration order, group ranges, private blocks,
// removal during the walk and element ranges.
#include "common/imgproc/src/dicomparser.h"
#include "common/imgproc/src/dicomtaggrouplist.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dctk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

typedef std::vector<std::string> Log;

class Walker : public CDicomTagParser2
{
public:
    void InitPrivateData() override { ++m_walks; }
    int m_walks = 0;
};

std::string describe(IDicomTagParser2* parser, const char* name)
{
    char text[64];
    const DcmTagKey tag = parser->getCurrentObject()->getTag();
    snprintf(text, sizeof(text), "%s(%04x,%04x)@%d", name, tag.getGroup(), tag.getElement(), parser->getIndex());
    return text;
}

void handlerA(IDicomTagParser2* p) { static_cast<Log*>(p->getUserData())->push_back(describe(p, "A")); }
void handlerB(IDicomTagParser2* p) { static_cast<Log*>(p->getUserData())->push_back(describe(p, "B")); }
void handlerRemove(IDicomTagParser2* p)
{
    static_cast<Log*>(p->getUserData())->push_back(describe(p, "R"));
    p->removeElement();
}

int preprocessCalls = 0;
bool countingPreprocess(IDicomTagParser2*)
{
    ++preprocessCalls;
    return true;
}

void putString(DcmItem& item, Uint16 group, Uint16 element, const char* value, DcmEVR vr = EVR_LO)
{
    item.putAndInsertString(DcmTag(group, element, vr), value);
}

struct WalkCase { const char* name; void (*registerTags)(SDicomTagGroupList&); void (*fill)(DcmItem&); Log expected; };

} // namespace

TEST(DicomParser, DispatchesByRegistrationOrderGroupRangeAndPrivateBlock)
{
    const WalkCase cases[] = {
        {"same tag twice: both, in registration order; other groups untouched",
         [](SDicomTagGroupList& r) {
             r.addTag(DCM_Rows, handlerB, nullptr, 0x10001);
             r.addTag(DCM_Columns, handlerA, nullptr, 0x10001);
             r.addTag(DCM_Rows, handlerA, nullptr, 0x10001);
         },
         [](DcmItem& i) {
             i.putAndInsertString(DCM_PatientName, "X");
             i.putAndInsertUint16(DCM_Rows, 2);
             i.putAndInsertUint16(DCM_Columns, 3);
         },
         {"B(0028,0010)@1", "A(0028,0010)@1", "A(0028,0011)@2"}},
        {"one overlay registration serves 6000-60FE, not odd groups nor 6100",
         [](SDicomTagGroupList& r) { r.addTag(DcmTagKey(0x6000, 0x0010), handlerA, nullptr, 0x1000001); },
         [](DcmItem& i) {
             i.putAndInsertUint16(DcmTagKey(0x6000, 0x0010), 4);
             putString(i, 0x6001, 0x0010, "creator");
             i.putAndInsertUint16(DcmTagKey(0x6002, 0x0010), 4);
             i.putAndInsertUint16(DcmTagKey(0x60FE, 0x0010), 4);
             i.putAndInsertUint16(DcmTagKey(0x6100, 0x0010), 4);
         },
         {"A(6000,0010)@0", "A(6002,0010)@2", "A(60fe,0010)@3"}},
        {"private data element dispatched by its offset once the creator matched in the group",
         [](SDicomTagGroupList& r) { r.addTag(DcmTagKey(0xF215, 0x101D), handlerA, "KQ group A", 0x10001); },
         [](DcmItem& i) {
             putString(i, 0xF215, 0x0010, "Other creator");
             putString(i, 0xF215, 0x0011, "KQ group A");
             putString(i, 0xF215, 0x111D, "ours");
             putString(i, 0xF215, 0x111E, "next");
         },
         {"A(f215,111d)@2"}},
        {"a data element before any matching creator: nothing",
         [](SDicomTagGroupList& r) { r.addTag(DcmTagKey(0xF215, 0x001D), handlerA, "KQ group A", 0x10001); },
         [](DcmItem& i) {
             putString(i, 0xF215, 0x0010, "Other creator");
             putString(i, 0xF215, 0x101D, "theirs");
         },
         {}},
        {"block byte not compared: any creator match opens every block of the group",
         [](SDicomTagGroupList& r) { r.addTag(DcmTagKey(0xF215, 0x001D), handlerA, "KQ group A", 0x10001); },
         [](DcmItem& i) {
             putString(i, 0xF215, 0x0010, "Other creator");
             putString(i, 0xF215, 0x0011, "KQ group A");
             putString(i, 0xF215, 0x101D, "theirs");
         },
         {"A(f215,101d)@2"}},
        {"an element range calls its first element twice",
         [](SDicomTagGroupList& r) {
             r.addTag(DCM_Rows, handlerA, nullptr, 0x10002);
             r.addTag(DCM_BitsAllocated, handlerB, nullptr, 0x10001);
         },
         [](DcmItem& i) {
             i.putAndInsertUint16(DCM_Rows, 2);
             i.putAndInsertUint16(DCM_Columns, 3);
             i.putAndInsertUint16(DCM_BitsAllocated, 8);
         },
         {"A(0028,0010)@0", "A(0028,0010)@0", "A(0028,0011)@1", "B(0028,0100)@2"}},
        {"a removed element: the walk goes on with the next, index not advanced",
         [](SDicomTagGroupList& r) {
             r.addTag(DCM_Rows, handlerRemove, nullptr, 0x10001);
             r.addTag(DCM_Columns, handlerA, nullptr, 0x10001);
         },
         [](DcmItem& i) {
             i.putAndInsertString(DCM_PatientName, "X");
             i.putAndInsertUint16(DCM_Rows, 2);
             i.putAndInsertUint16(DCM_Columns, 3);
         },
         {"R(0028,0010)@1", "A(0028,0011)@1"}},
    };
    for (const WalkCase& c : cases)
    {
        SCOPED_TRACE(c.name);
        SDicomTagGroupList registry;
        c.registerTags(registry);
        for (int walk = 0; walk < 2; ++walk) // a registry serves many walks
        {
            DcmItem item;
            c.fill(item);
            const unsigned long before = item.card();
            Walker walker;
            Log log;
            walker.parseTags(&item, &log, &registry);
            EXPECT_EQ(log, c.expected);
            EXPECT_EQ(walker.getCurrentObject(), nullptr);
            EXPECT_EQ(walker.m_walks, 1);
            // a removed element is gone
            EXPECT_EQ(before - item.card(), size_t(std::count_if(log.begin(), log.end(), [](const std::string& l) {
                          return l[0] == 'R';
                      })));
        }
    }
}

TEST(DicomParser, EmptyItemAndEmptyRegistry)
{
    SDicomTagGroupList empty;
    DcmItem item;
    Walker walker;
    Log log;
    preprocessCalls = 0;
    walker.parseTags(&item, &log, &empty, countingPreprocess);
    EXPECT_EQ(walker.getIndex(), -1);
    EXPECT_EQ(preprocessCalls, 0);

    item.putAndInsertString(DCM_PatientName, "X");
    item.putAndInsertUint16(DCM_Rows, 2);
    walker.parseTags(&item, &log, &empty, countingPreprocess);
    EXPECT_EQ(preprocessCalls, 2);
    EXPECT_EQ(walker.getIndex(), 1);
    EXPECT_TRUE(log.empty());
}
