// The legacy key map and the tag conversions built on it.
#include "privatetags/tests/KQTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

using namespace kqtest;

TEST(KQItemMap, HoldsTheLegacyTable)
{
    KQItem::createMap();
    KQItem::createMap(); // a second call adds nothing
    EXPECT_EQ(68u, KQItem::m_privateKeyMap.size());
    // the irregular entries, the first and the last of each block
    const std::pair<Uint16, unsigned short> entries[] = {{0xBA00, 0x10}, {0xBA31, 0x0E}, {0xBA94, 0x94},
                                                         {0xBABA, 0x1D}, {0xDA01, 0x41}, {0xDA31, 0x62},
                                                         {0xDA71, 0x0A}, {0xDADA, 0x1E}, {0x10A8, 0xA8}};
    for (const auto& e : entries)
    {
        const auto it = KQItem::m_privateKeyMap.find(f215(e.first));
        ASSERT_NE(KQItem::m_privateKeyMap.end(), it) << std::hex << e.first;
        EXPECT_EQ(e.second, it->second) << std::hex << e.first;
    }
    for (const auto& entry : KQItem::m_privateKeyMap)
    {
        const unsigned short block = entry.first.getElement() >> 8;
        EXPECT_TRUE(block == 0xBA || block == 0xDA || block == 0x10) << entry.first;
        EXPECT_LT(entry.second, 0x100);
    }
}

TEST(KQItemMap, CanonicKeys)
{
    const std::pair<DcmTagKey, DcmTagKey> cases[] = {
        {DcmTagKey(0x0010, 0x0010), DcmTagKey(0x0010, 0x0010)}, // outside group F215: unchanged
        {DcmTagKey(0xF213, 0xBA01), DcmTagKey(0xF213, 0xBA01)},
        {f215(0x1123), f215(0x1023)}, // any other block folds onto block 10
        {f215(0xFF62), f215(0x1062)},
        {f215(0x0011), f215(0x1011)}, // creator elements included
        {f215(0x00BA), f215(0x10BA)},
        {f215(0xDA31), f215(0x1062)}, // legacy blocks through the map, whoever their creator
        {f215(0xBA94), f215(0x1094)},
        {f215(0xBA08), f215(0xBA08)}, // legacy keys missing from the map stay
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, KQItem::getCanonicKey(DcmTag(c.first))) << c.first;
}

TEST(KQItemMap, CanonicTagAndClassification)
{
    const DcmTag tag = KQItem::canonicTag(0x62);
    EXPECT_EQ(f215(0x1062), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());

    for (Uint16 element : {0x0010, 0x00FF})
        EXPECT_TRUE(KQItem::isOurPrivateCreator(DcmTag(f215(element))));
    for (Uint16 element : {0x000F, 0x0100})
        EXPECT_FALSE(KQItem::isOurPrivateCreator(DcmTag(f215(element))));
    EXPECT_TRUE(KQItem::isOurPrivateTagKey(f215(0x1000)));
    EXPECT_FALSE(KQItem::isOurPrivateTagKey(f215(0x0FFF)));
    // the creator decides, in any odd group
    EXPECT_TRUE(KQItem::isOurPrivateTag(DcmTag(0x0009, 0x1015, KQ_PRIVATE_CREATOR)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115, "KQ group B")));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0x0007, 0x1015, KQ_PRIVATE_CREATOR)));

    std::unique_ptr<DcmElement> element(KQItem::createNewDicomElement(f215(0x1315)));
    ASSERT_NE(nullptr, element);
    EXPECT_EQ(EVR_DA, element->ident());
    const OFCondition cond(EC_KQPrivateTagProblem);
    EXPECT_EQ(1051, cond.module());
    EXPECT_EQ(3840, cond.code());
    EXPECT_STREQ("KQItem Private Tag Relocation Error", cond.text());
}

TEST(KQItemMap, ConvertTag)
{
    DcmItem item;
    putCreator(item, 0x10, "Someone else");
    KQItem kq(item);
    // a legacy key in the map moves into the item's block (0x11), with its VR
    DcmTag tag(f215(0xDA31));
    EXPECT_TRUE(kq.convertTag(tag).good());
    EXPECT_EQ(f215(0x1162), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));
    for (const DcmTagKey& key : {f215(0xBA08), DcmTagKey(0x0010, 0x0010), f215(0x1062)})
    {
        DcmTag unchanged(key);
        EXPECT_TRUE(kq.convertTag(unchanged).good());
        EXPECT_EQ(key, unchanged.getXTag());
    }

    // a block that cannot be settled
    LogCapture log;
    DcmItem broken;
    appendItem(broken, f215(0x0010));
    DcmTag legacy(f215(0xBA51));
    EXPECT_EQ(EC_KQPrivateTagProblem, KQItem(broken).convertTag(legacy));
    EXPECT_EQ(f215(0xBA51), legacy.getXTag());
    EXPECT_TRUE(log.contains("couldn't calc"));
}
