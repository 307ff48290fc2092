#include "infrared/HeldSignal.h"

#include "infrared/TiraFacts.h"

#include <numeric>

namespace {

using Durations = std::vector<uint32_t>;

uint32_t sum(const Durations& d) {
    return uint32_t(std::accumulate(d.begin(), d.end(), uint64_t(0)));
}

// durations[from, to) as a frame: the pause it ends with goes into its period.
void part(const IrTiming& t, size_t from, size_t to, IrTiming* frame, uint32_t* periodUs) {
    Durations d(t.durations.begin() + long(from), t.durations.begin() + long(to));
    uint32_t gap = TiraFacts::DefaultRepeatGapUs;
    if (d.size() % 2 == 0 && !d.empty()) {
        gap = d.back();
        d.pop_back();
    }
    *periodUs = sum(d) + gap;
    frame->durations = std::move(d);
    frame->carrierHz = t.carrierHz;
}

} // namespace

std::optional<HeldSignal> HeldSignalOf(const IrTiming& stored, const IrCode& code) {
    IrTiming t = stored;
    if (code.decoded()) {
        IrCode held = code;
        held.repeats = true;
        if (auto encoded = EncodeSignal(held)) {
            t = std::move(*encoded);
            if (stored.carrierHz > 0)
                t.carrierHz = stored.carrierHz;
        }
    }
    if (t.durations.empty())
        return std::nullopt;
    if (t.carrierHz <= 0)
        t.carrierHz = DefaultCarrierHz;
    // The repeating part starts on a pulse; one marked on a space starts after it.
    size_t begin = t.repeats() ? size_t(t.repeatBegin + t.repeatBegin % 2) : 0;
    if (begin >= t.durations.size())
        begin = 0;
    HeldSignal h;
    if (begin == 0) {
        part(t, 0, t.durations.size(), &h.first, &h.firstPeriodUs);
        h.repeat = h.first;
        h.repeatPeriodUs = h.firstPeriodUs;
    } else {
        part(t, 0, begin, &h.first, &h.firstPeriodUs);
        part(t, begin, t.durations.size(), &h.repeat, &h.repeatPeriodUs);
    }
    return h;
}
