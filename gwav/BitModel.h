// An adaptive estimate of the probability of a binary decision.
#ifndef GWAV_BITMODEL_H
#define GWAV_BITMODEL_H

#include <cstdint>

// The probability that the next decision is 1, in 1/65536 units, learnt from the decisions seen:
// the first ones move it as a counting estimate would, later ones by a fixed fraction, so the
// model follows statistics that drift through the bit planes.
struct BitModel
{
    // Decisions after which the adaptation rate usually stops slowing down.
    static const int LIMIT = 30;
    // The same for decisions with steady statistics.
    static const int SLOW_LIMIT = 250;

    uint16_t m_one = 32768; // probability of a 1
    uint8_t m_seen = 0;      // decisions seen, up to m_limit
    uint8_t m_limit = LIMIT; // where m_seen stops

    // Moves the estimate towards the decision just coded.
    void update(int bit)
    {
        // 65536 / (n + 2): the n-th update weighs the decision as a count of n + 2 would
        static const uint16_t rate[256] = {
            32768, 21845, 16384, 13107, 10923, 9362, 8192, 7282, 6554, 5958, 5461, 5041, 4681, 4369, 4096,
            3855, 3641, 3449, 3277, 3121, 2979, 2849, 2731, 2621, 2521, 2427, 2341, 2260, 2185, 2114, 2048,
            1986, 1928, 1872, 1820, 1771, 1725, 1680, 1638, 1598, 1560, 1524, 1489, 1456, 1425, 1394, 1365,
            1337, 1311, 1285, 1260, 1237, 1214, 1192, 1170, 1150, 1130, 1111, 1092, 1074, 1057, 1040, 1024,
            1008, 993, 978, 964, 950, 936, 923, 910, 898, 886, 874, 862, 851, 840, 830, 819, 809, 799, 790,
            780, 771, 762, 753, 745, 736, 728, 720, 712, 705, 697, 690, 683, 676, 669, 662, 655, 649, 643, 636,
            630, 624, 618, 612, 607, 601, 596, 590, 585, 580, 575, 570, 565, 560, 555, 551, 546, 542, 537, 533,
            529, 524, 520, 516, 512, 508, 504, 500, 496, 493, 489, 485, 482, 478, 475, 471, 468, 465, 462, 458,
            455, 452, 449, 446, 443, 440, 437, 434, 431, 428, 426, 423, 420, 417, 415, 412, 410, 407, 405, 402,
            400, 397, 395, 392, 390, 388, 386, 383, 381, 379, 377, 374, 372, 370, 368, 366, 364, 362, 360, 358,
            356, 354, 352, 350, 349, 347, 345, 343, 341, 340, 338, 336, 334, 333, 331, 329, 328, 326, 324, 323,
            321, 320, 318, 317, 315, 314, 312, 311, 309, 308, 306, 305, 303, 302, 301, 299, 298, 297, 295, 294,
            293, 291, 290, 289, 287, 286, 285, 284, 282, 281, 280, 279, 278, 277, 275, 274, 273, 272, 271, 270,
            269, 267, 266, 265, 264, 263, 262, 261, 260, 259, 258, 257, 256, 255};
        const int target = bit ? 65535 : 0;
        int p = m_one + (((target - int(m_one)) * int(rate[m_seen])) >> 16);
        if (p < 48)
            p = 48;
        else if (p > 65536 - 48)
            p = 65536 - 48;
        m_one = uint16_t(p);
        if (m_seen < m_limit)
            ++m_seen;
    }
};

#endif
