// The legacy key map and the tag conversions built on it.
#include "privatetags/tests/KQTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

using namespace kqtest;

namespace {

// The legacy numbering as the old releases documented it, row by row (two pairs a row).
const char* const legacyTable = R"(
| BA00 | 0x10 | BA53 | 0x17 |
| BA01 | 0x01 | BA54 | 0x18 |
| BA02 | 0x02 | BA61 | 0x2A |
| BA03 | 0x03 | BA62 | 0x2B |
| BA04 | 0x04 | BA71 | 0x21 |
| BA05 | 0x05 | BA72 | 0x22 |
| BA06 | 0x06 | BA73 | 0x23 |
| BA07 | 0x07 | BA74 | 0x24 |
| BA11 | 0x11 | BA75 | 0x25 |
| BA12 | 0x12 | BA81 | 0x31 |
| BA21 | 0x13 | BA82 | 0x32 |
| BA22 | 0x14 | BA83 | 0x33 |
| BA31 | 0x0E | BA91 | 0x34 |
| BA41 | 0x1A | BA92 | 0x35 |
| BA42 | 0x1B | BA93 | 0x36 |
| BA51 | 0x15 | BA94 | 0x94 |
| BA52 | 0x16 | BAA0 | 0x37 |
| BABA | 0x1D | BAA1 | 0x38 |
| DA01 | 0x41 | DA41 | 0x6A |
| DA02 | 0x42 | DA42 | 0x6B |
| DA03 | 0x43 | DA43 | 0x6C |
| DA04 | 0x44 | DA51 | 0x71 |
| DA11 | 0x51 | DA52 | 0x72 |
| DA12 | 0x52 | DA53 | 0x73 |
| DA13 | 0x53 | DA61 | 0x76 |
| DA14 | 0x54 | DA62 | 0x7A |
| DA15 | 0x55 | DA63 | 0x7B |
| DA21 | 0x61 | DA71 | 0x0A |
| DA31 | 0x62 | DA72 | 0x0B |
| DA32 | 0x63 | DA73 | 0x0C |
| DA33 | 0x64 | DA74 | 0x0D |
| DA38 | 0x65 | DA80 | 0x3A |
| DADA | 0x1E | | |
| 10A5 | 0xA5 | 10A6 | 0xA6 |
| 10A8 | 0xA8 | | |
)";

std::map<DcmTagKey, unsigned short> parseTable()
{
    std::map<DcmTagKey, unsigned short> table;
    std::istringstream in(legacyTable);
    std::string token, element;
    while (in >> token)
    {
        if (token == "|")
            continue;
        if (token.compare(0, 2, "0x") == 0)
        {
            table[f215(Uint16(strtoul(element.c_str(), NULL, 16)))] = Uint16(strtoul(token.c_str(), NULL, 16));
            element.clear();
        }
        else
            element = token;
    }
    return table;
}

} // namespace

TEST(KQItemMap, HoldsExactlyTheLegacyTable)
{
    const std::map<DcmTagKey, unsigned short> expected = parseTable();
    ASSERT_EQ(68u, expected.size());

    KQItem::createMap();
    KQItem::createMap(); // a second call adds nothing
    ASSERT_TRUE(KQItem::m_isMapCreated);
    ASSERT_EQ(68u, KQItem::m_privateKeyMap.size());
    for (const auto& entry : expected)
    {
        auto it = KQItem::m_privateKeyMap.find(entry.first);
        ASSERT_NE(KQItem::m_privateKeyMap.end(), it) << entry.first;
        EXPECT_EQ(entry.second, it->second) << entry.first;
    }

    int inBA = 0, inDA = 0, in10 = 0;
    for (const auto& entry : KQItem::m_privateKeyMap)
    {
        EXPECT_EQ(KQ_PRIVATE_GROUP, entry.first.getGroup());
        EXPECT_LT(entry.second, 0x100);
        switch (entry.first.getElement() >> 8)
        {
        case 0xBA: ++inBA; break;
        case 0xDA: ++inDA; break;
        case 0x10: ++in10; break;
        default: ADD_FAILURE() << entry.first;
        }
    }
    EXPECT_EQ(36, inBA);
    EXPECT_EQ(29, inDA);
    EXPECT_EQ(3, in10);
}

TEST(KQItemMap, CanonicKeys)
{
    // outside group F215: unchanged
    EXPECT_EQ(DcmTagKey(0x0010, 0x0010), KQItem::getCanonicKey(DcmTag(0x0010, 0x0010)));
    EXPECT_EQ(DcmTagKey(0xF213, 0xBA01), KQItem::getCanonicKey(DcmTag(0xF213, 0xBA01)));
    // any other block folds onto block 10, creator elements included
    EXPECT_EQ(f215(0x1023), KQItem::getCanonicKey(DcmTag(f215(0x1123))));
    EXPECT_EQ(f215(0x1062), KQItem::getCanonicKey(DcmTag(f215(0xFF62))));
    EXPECT_EQ(f215(0x1011), KQItem::getCanonicKey(DcmTag(f215(0x0011))));
    EXPECT_EQ(f215(0x10A5), KQItem::getCanonicKey(DcmTag(f215(0x10A5))));
    // legacy blocks through the map, whoever their creator
    EXPECT_EQ(f215(0x1062), KQItem::getCanonicKey(DcmTag(f215(0xDA31))));
    EXPECT_EQ(f215(0x1094), KQItem::getCanonicKey(DcmTag(f215(0xBA94))));
    EXPECT_EQ(f215(0x1010), KQItem::getCanonicKey(DcmTag(f215(0xBA00))));
    EXPECT_EQ(f215(0x100A), KQItem::getCanonicKey(DcmTag(f215(0xDA71))));
    // legacy keys missing from the map stay as they are
    EXPECT_EQ(f215(0xBA08), KQItem::getCanonicKey(DcmTag(f215(0xBA08))));
    EXPECT_EQ(f215(0xDA00), KQItem::getCanonicKey(DcmTag(f215(0xDA00))));
    // the legacy creator element itself is in block 00, not a legacy block
    EXPECT_EQ(f215(0x10BA), KQItem::getCanonicKey(DcmTag(f215(0x00BA))));
}

TEST(KQItemMap, CanonicTagAndClassification)
{
    const DcmTag tag = KQItem::canonicTag(0x62);
    EXPECT_EQ(f215(0x1062), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());

    EXPECT_TRUE(KQItem::isOurPrivateCreator(DcmTag(f215(0x0010))));
    EXPECT_TRUE(KQItem::isOurPrivateCreator(DcmTag(f215(0x00FF))));
    EXPECT_FALSE(KQItem::isOurPrivateCreator(DcmTag(f215(0x000F))));
    EXPECT_FALSE(KQItem::isOurPrivateCreator(DcmTag(f215(0x0100))));
    EXPECT_FALSE(KQItem::isOurPrivateCreator(DcmTag(0x0009, 0x0010)));

    EXPECT_TRUE(KQItem::isOurPrivateTagKey(f215(0x1000)));
    EXPECT_FALSE(KQItem::isOurPrivateTagKey(f215(0x0FFF)));
    EXPECT_FALSE(KQItem::isOurPrivateTagKey(DcmTagKey(0x0009, 0x1000)));

    // the creator decides, not the group
    EXPECT_TRUE(KQItem::isOurPrivateTag(DcmTag(0x0009, 0x1015, KQ_PRIVATE_CREATOR)));
    EXPECT_TRUE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115, KQ_PRIVATE_CREATOR)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115, "KQ group B")));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0xF215, 0x1115)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0x0010, 0x1015, KQ_PRIVATE_CREATOR)));
    EXPECT_FALSE(KQItem::isOurPrivateTag(DcmTag(0x0007, 0x1015, KQ_PRIVATE_CREATOR)));

    DcmElement* element = KQItem::createNewDicomElement(f215(0x1315));
    ASSERT_NE(nullptr, element);
    EXPECT_EQ(EVR_DA, element->ident());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, element->getTag().getPrivateCreator());
    delete element;
}

TEST(KQItemMap, ConvertTag)
{
    LogCapture log;
    DcmItem item;
    putCreator(item, 0x10, "Someone else");
    KQItem kq(item);

    // a legacy key in the map moves into the block settled for the item (0x11), with its VR
    DcmTag tag(f215(0xDA31));
    EXPECT_TRUE(kq.convertTag(tag).good());
    EXPECT_EQ(f215(0x1162), tag.getXTag());
    EXPECT_STREQ(KQ_PRIVATE_CREATOR, tag.getPrivateCreator());
    EXPECT_EQ(EVR_SQ, tag.getEVR());
    EXPECT_EQ(KQ_PRIVATE_CREATOR, stringOf(item, f215(0x0011)));

    DcmTag unknown(f215(0xBA08));
    EXPECT_TRUE(kq.convertTag(unknown).good());
    EXPECT_EQ(f215(0xBA08), unknown.getXTag());

    DcmTag publicTag(0x0010, 0x0010);
    EXPECT_TRUE(kq.convertTag(publicTag).good());
    EXPECT_EQ(DcmTagKey(0x0010, 0x0010), publicTag.getXTag());

    DcmTag otherBlock(f215(0x1062));
    EXPECT_TRUE(kq.convertTag(otherBlock).good());
    EXPECT_EQ(f215(0x1062), otherBlock.getXTag());
    EXPECT_TRUE(log.lines().empty());

    // non-legacy tags never touch the item
    DcmItem untouched;
    KQItem fresh(untouched);
    DcmTag canonical(f215(0x1015));
    EXPECT_TRUE(fresh.convertTag(canonical).good());
    EXPECT_FALSE(fresh.isCalculated());
    EXPECT_EQ(0u, untouched.card());

    // a block that cannot be settled
    DcmItem broken;
    DcmItem* nested = appendItem(broken, f215(0x0010));
    ASSERT_NE(nullptr, nested);
    KQItem bad(broken);
    DcmTag legacy(f215(0xBA51));
    EXPECT_EQ(EC_KQPrivateTagProblem, bad.convertTag(legacy));
    EXPECT_EQ(f215(0xBA51), legacy.getXTag());
    EXPECT_TRUE(log.contains("couldn't calc"));
}

TEST(KQItemMap, ConditionConstant)
{
    const OFCondition cond(EC_KQPrivateTagProblem);
    EXPECT_EQ(1051, cond.module());
    EXPECT_EQ(3840, cond.code());
    EXPECT_EQ(OF_error, cond.status());
    EXPECT_STREQ("KQItem Private Tag Relocation Error", cond.text());
}
