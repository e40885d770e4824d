#pragma once

// Summaries as bytes (docs/state-format.md, "Summaries").

#include <velmor/groupsummary.h>
#include <velmor/summary.h>

#include "record/statestream.h"
#include "summary/parts.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace velmor {

// What bytes are of.
enum class SummaryContent : std::uint32_t { Summary = 1, Groups = 2 };

// Writes all that comes before the statistics.
void WriteHead(SummaryContent content, const SummaryDefinition& definition, const SummaryRows& rows,
               StateWriter& state);
// The bytes of what was written behind a head.
std::vector<std::byte> Finish(StateWriter& state);

struct SummaryHead {
  SummaryDefinition definition;  // in its normal form
  SummaryRows rows;
};
// Throws StateError unless the bytes begin with a head and end with their hash.
SummaryHead ReadHead(SummaryContent content, StateReader& state);

void WriteParts(const Parts& parts, StateWriter& state);
// Parts of so many rows, or of any number of them. Throws StateError unless they are such as Parts
// makes of used rows.
Parts ReadParts(const SummaryDefinition& definition, std::optional<std::uint64_t> rows,
                StateReader& state);

// The labels of a summary of groups.
struct LabelsHead {
  bool areTexts = false;
  bool areFixed = false;  // known beforehand
  std::vector<GroupLabel> all;
};
void WriteLabels(bool areTexts, bool areFixed, const std::vector<GroupLabel>& all,
                 StateWriter& state);
LabelsHead ReadLabels(StateReader& state);

}  // namespace velmor
