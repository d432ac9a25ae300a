// The bit-plane passes over the subbands, shared by the encoder and the decoder.
#ifndef GWAV_PASSCODER_H
#define GWAV_PASSCODER_H

#include "gwav/ArithmeticDecoder.h"
#include "gwav/ArithmeticEncoder.h"
#include "gwav/BandState.h"
#include "gwav/BitModel.h"

#include <vector>

// The encoder's side of the passes: decisions come from the coefficients and are coded.
class EncoderSide
{
public:
    static const bool ENCODER = true;
    explicit EncoderSide(ArithmeticEncoder& coder) : m_coder(coder) {}
    int code(int bit, BitModel& model)
    {
        m_coder.encode(bit, model);
        return bit;
    }
    // True when the budget is spent: the passes stop.
    bool done() const { return m_coder.full(); }

private:
    ArithmeticEncoder& m_coder;
};

// The decoder's side: decisions come from the stream.
class DecoderSide
{
public:
    static const bool ENCODER = false;
    explicit DecoderSide(ArithmeticDecoder& coder) : m_coder(coder) {}
    int code(int, BitModel& model) { return m_coder.decode(model); }
    // True when the stream settles no further decision: the passes stop.
    bool done() const { return m_coder.exhausted(); }

private:
    ArithmeticDecoder& m_coder;
};

// Codes the three passes of each bit plane p of a band:
// - propagation: leaves not yet significant next to significant ones, the likeliest to turn
//   significant, each get one decision (is its magnitude at least 2^p?);
// - refinement: bit p of every leaf significant before plane p;
// - cleanup: the rest, through the band's quadtree from its root: a node not yet significant
//   gets one decision (is any magnitude below it at least 2^p?), a significant node passes to
//   its children.
// A leaf that turns significant gets its sign. Every decision is coded in a context of what
// both sides already know: significant neighbours, the band one level coarser, the quadtree
// level. Side is EncoderSide or DecoderSide; both walk exactly the same way.
template <class Side>
class PassCoder
{
public:
    // The bands are borrowed for the coder's lifetime.
    PassCoder(Side& side, std::vector<BandState>& bands);

    // Propagation pass of plane p over band b.
    void propagation(int b, int p);
    // Refinement pass of plane p over band b.
    void refinement(int b, int p);
    // Cleanup pass of plane p over band b.
    void cleanup(int b, int p);

private:
    // Visits node (x, y) of level k; returns whether it is significant at plane p.
    bool visit(BandState& band, BandState* parent, int k, int x, int y, int p, bool forced, bool fresh);
    bool visitLeaf(BandState& band, int x, int y, int p, bool forced, bool fresh);
    // Codes the significance of leaf (x, y) (unless forced) and its sign; true when significant.
    bool codeLeaf(BandState& band, int x, int y, int p, bool forced, int pass);
    BandState* parentOf(BandState& band) { return band.band().m_parent >= 0 ? &m_bands[band.band().m_parent] : nullptr; }
    int orientationClass(const BandState& band) const;

    Side& m_side;
    std::vector<BandState>& m_bands;

    // orientation class, quadtree level, significant neighbours, coarser band, fresh parent node
    BitModel m_node[3][3][3][3][2];
    // orientation class, neighbourhood, pass (propagation, cleanup, cleanup under a fresh node)
    BitModel m_leaf[3][9][3];
    BitModel m_sign[5];
    // orientation class; first refinement without and with significant neighbours, later ones
    BitModel m_refine[3][3];
};

extern template class PassCoder<EncoderSide>;
extern template class PassCoder<DecoderSide>;

#endif
