// The legacy key map and the tag conversions built on it.
#include "privatetags/tests/KQTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
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
    KQItem::createMap();
    KQItem::createMap(); // a second call adds nothing
    EXPECT_EQ(parseTable(), KQItem::m_privateKeyMap);
    EXPECT_EQ(68u, KQItem::m_privateKeyMap.size());
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
