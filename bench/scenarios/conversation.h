#ifndef LINXIPC_BENCH_SCENARIOS_CONVERSATION_H
#define LINXIPC_BENCH_SCENARIOS_CONVERSATION_H

#include <functional>

#include "bench/harness/figures.h"
#include "bench/peers/peer.h"

namespace bench {

/// Gives the time that all processes of a conversation, and what runs beside them, have used of the processors.
using ProcessorMeter = std::function<std::uint64_t()>;

/// What the process does that measures; what it measured goes into the sheet.
using Measure = std::function<void(End& end, const ProcessorMeter& used, FigureSheet& sheet)>;

/// What another process does over and over until the measuring one has ended.
using Turn = std::function<void(End& end, unsigned self)>;

/// Has the processes of `layout` talk through `peer`: process `measuring` measures, all others take turns.
Figures converse(const Peer& peer, Layout layout, unsigned measuring, const Measure& measure, const Turn& turn);

}  // namespace bench

#endif
