// What the coefficient coder knows about one subband: its coefficients, their significance and
// the quadtree over them.
#ifndef GWAV_BANDSTATE_H
#define GWAV_BANDSTATE_H

#include "gwav/Subband.h"

#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

// The state of one subband during coding. Coefficients (the leaves) and the nodes of the
// quadtree above them (level k covers 2^k x 2^k leaves) carry flags in arrays with a border of
// one cell, so that neighbours are read without bounds checks. The encoder also keeps, for every
// node and leaf, the number of bits of its largest magnitude.
class BandState
{
public:
    // flags of a leaf or node
    static const uint8_t SIGNIFICANT = 1;
    static const uint8_t NEGATIVE = 2;
    // a significant leaf: refined at least once; one not yet significant: a candidate of the
    // propagation pass (it has a significant neighbour)
    static const uint8_t REFINED = 4;
    static const uint8_t CANDIDATE = 4;
    // upper bits: a significant leaf's lowest known magnitude bit; for one not yet significant,
    // one more than the plane it was last found insignificant at by the propagation pass
    static const int KNOWN_SHIFT = 3;

    // Empty state for the band (no allocation yet).
    explicit BandState(const Subband& band);

    // Allocates the arrays (flags zeroed); the encoder's also hold the bit counts. False when
    // memory is short.
    bool allocate(bool encoder);
    // Encoder: takes the band's coefficients (width x height, row by row) and fills magnitudes,
    // signs and the bit counts of every node. Returns the largest bit count.
    template <typename T>
    int load(const T* coefficients);

    const Subband& band() const { return m_band; }
    int width() const { return m_band.m_width; }
    int height() const { return m_band.m_height; }
    // Number of quadtree levels above the leaves; the root is the only node of the top level.
    int treeLevels() const { return m_treeLevels; }
    int levelWidth(int k) const { return m_levelWidth[k]; }
    int levelHeight(int k) const { return m_levelHeight[k]; }

    // Flags of leaf (x, y); x and y may be -1 or the width/height (the border).
    uint8_t& leaf(int x, int y) { return m_leaves[size_t(y + 1) * size_t(m_band.m_width + 2) + size_t(x + 1)]; }
    // Flags of node (x, y) of level k >= 1, border included.
    uint8_t& node(int k, int x, int y)
    {
        return m_nodes[m_nodeOffset[k] + size_t(y + 1) * size_t(m_levelWidth[k] + 2) + size_t(x + 1)];
    }
    // Distance between vertically adjacent cells of level k (0 for the leaves).
    size_t paddedWidth(int k) const { return size_t(m_levelWidth[k] + 2); }
    // Encoder: bit count of the largest magnitude under node (x, y) of level k (k = 0: leaf).
    uint8_t bits(int k, int x, int y) const { return m_bits[m_bitsOffset[k] + size_t(y) * m_levelWidth[k] + x]; }
    // Magnitude of leaf (x, y): the encoder's coefficient, the bits the decoder knows so far.
    uint32_t& magnitude(int x, int y) { return m_magnitude[size_t(y) * size_t(m_band.m_width) + size_t(x)]; }
    // Leaves in the order they became significant, as y * width + x.
    std::vector<uint32_t>& significant() { return m_significant; }
    // Leaves not yet significant that have a significant neighbour, as y * width + x (some
    // entries may have turned significant since).
    std::vector<uint32_t>& candidates() { return m_candidates; }

    // Records that leaf (x, y) turned significant at plane p: flags, the decoder's magnitude,
    // the lists, the quadtree nodes above it and its neighbours as candidates.
    void setSignificant(int x, int y, int p, bool negative, bool decoder);

private:
    const Subband& m_band;
    int m_treeLevels;
    std::vector<int> m_levelWidth;
    std::vector<int> m_levelHeight;
    std::vector<size_t> m_nodeOffset;
    std::vector<size_t> m_bitsOffset;
    // zeroed by calloc: pages no decision reaches are never touched
    struct Free
    {
        void operator()(void* p) const { free(p); }
    };
    std::unique_ptr<uint8_t[], Free> m_leaves;
    std::unique_ptr<uint8_t[], Free> m_nodes;
    std::unique_ptr<uint8_t[]> m_bits; // set by load before it is read
    std::unique_ptr<uint32_t[]> m_magnitude; // set before it is read: loaded, or when significant
    std::vector<uint32_t> m_significant;
    std::vector<uint32_t> m_candidates;
};

template <typename T>
int BandState::load(const T* coefficients)
{
    const int w = m_band.m_width;
    const int h = m_band.m_height;
    uint8_t* bits = m_bits.get();
    for (int y = 0; y < h; ++y)
    {
        const T* row = coefficients + size_t(y) * size_t(w);
        uint32_t* magnitudes = &m_magnitude[size_t(y) * size_t(w)];
        uint8_t* flags = &leaf(0, y);
        uint8_t* counts = bits + size_t(y) * size_t(w);
        for (int x = 0; x < w; ++x)
        {
            const T value = row[x];
            const uint32_t m = uint32_t(value < 0 ? -value : value);
            magnitudes[x] = m;
            flags[x] = value < 0 ? NEGATIVE : 0;
            counts[x] = uint8_t(m == 0 ? 0 : 32 - __builtin_clz(m));
        }
    }
    // each node holds the largest count of its (up to four) children
    for (int k = 1; k <= m_treeLevels; ++k)
    {
        const int cw = m_levelWidth[k - 1];
        const int ch = m_levelHeight[k - 1];
        const int pw = m_levelWidth[k];
        const uint8_t* child = &m_bits[m_bitsOffset[k - 1]];
        uint8_t* parent = &m_bits[m_bitsOffset[k]];
        for (int y = 0; y < m_levelHeight[k]; ++y)
        {
            const uint8_t* top = child + size_t(2 * y) * size_t(cw);
            const uint8_t* bottom = 2 * y + 1 < ch ? top + cw : top;
            uint8_t* out = parent + size_t(y) * size_t(pw);
            for (int x = 0; x < cw / 2; ++x)
            {
                const uint8_t a = std::max(top[2 * x], top[2 * x + 1]);
                const uint8_t b = std::max(bottom[2 * x], bottom[2 * x + 1]);
                out[x] = std::max(a, b);
            }
            if (cw & 1)
                out[pw - 1] = std::max(top[cw - 1], bottom[cw - 1]);
        }
    }
    return m_bits[m_bitsOffset[m_treeLevels]];
}

#endif
