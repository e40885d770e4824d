// bytes.cpp: summaries as bytes; start at WriteHead and WriteParts, the format.
#include "summary/bytes.h"

#include <velmor/state.h>

#include "record/stateof.h"
#include "summary/definition.h"
#include "summary/records.h"
#include "summary/rowcounts.h"

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>
#include <string>

namespace velmor {
namespace {

// The first byte is no text, and a transfer that takes the whole for text changes the last one.
constexpr std::array<unsigned char, 8> kMagic{0x89, 'V', 'E', 'L', 'S', 'U', 'M', '\n'};
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kSizeAt = 16;
constexpr std::uint32_t kListwise = 1;
constexpr std::uint32_t kWeights = 2;
constexpr std::uint32_t kRegWeights = 4;

template <std::unsigned_integral Integer>
Integer Read(StateReader& state) {
  Integer number = 0;
  state.Number(number);
  return number;
}

void WriteText(const std::string& text, StateWriter& state) {
  state.Number(static_cast<std::uint32_t>(text.size()));
  state.Bytes(std::as_bytes(std::span(text)));
}

std::string ReadText(StateReader& state) {
  std::string text;
  for (const std::byte byte : state.Bytes(Read<std::uint32_t>(state))) {
    text.push_back(static_cast<char>(byte));
  }
  return text;
}

bool ReadFlag(StateReader& state) {
  const auto flag = Read<std::uint32_t>(state);
  state.Check(flag <= 1, "a flag is neither 0 nor 1");
  return flag == 1;
}

void WriteColumnHead(const SummaryColumn& column, StateWriter& state) {
  WriteText(column.name, state);
  state.Number(std::uint32_t{column.nanIsMissing ? 1U : 0U});
  state.Number(static_cast<std::uint32_t>(column.missingCodes.size()));
  state.Numbers(column.missingCodes, column.missingCodes.size());
}

SummaryColumn ReadColumnHead(StateReader& state) {
  SummaryColumn column;
  column.name = ReadText(state);
  column.nanIsMissing = ReadFlag(state);
  state.Numbers(column.missingCodes, Read<std::uint32_t>(state));
  return column;
}

void ReadMagicAndSize(SummaryContent content, StateReader& state) {
  for (const unsigned char c : kMagic) {
    if (Read<unsigned char>(state) != c) {
      throw StateError("not a summary: it does not begin like one");
    }
  }
  const auto version = Read<std::uint32_t>(state);
  if (version != kVersion) {
    throw StateError("a summary of format version " + std::to_string(version) +
                     ", which this version of the library does not read");
  }
  const auto found = Read<std::uint32_t>(state);
  const auto size = Read<std::uint64_t>(state);
  if (size != state.Size()) {
    throw StateError("the summary has " + std::to_string(state.Size()) + " bytes and should have " +
                     std::to_string(size));
  }
  state.CheckHash();
  state.Check(found == static_cast<std::uint32_t>(content),
              content == SummaryContent::Summary ? "this is not a summary without groups"
                                                 : "this is not a summary of groups");
}

// Whether the codes are as a normal definition has them, and every block's rows are told.
bool IsNormal(const SummaryDefinition& found, const SummaryDefinition& normal) {
  const auto hasSameBits = [](double a, double b) {
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
  };
  const auto hasSameCodes = [&](const SummaryColumn& a, const SummaryColumn& b) {
    return std::equal(a.missingCodes.begin(), a.missingCodes.end(), b.missingCodes.begin(),
                      b.missingCodes.end(), hasSameBits);
  };
  return found.blockRows == normal.blockRows &&
         std::equal(found.columns.begin(), found.columns.end(), normal.columns.begin(),
                    hasSameCodes);
}

std::unique_ptr<MatrixBase> ReadPart(const SummaryDefinition& definition, StateReader& state) {
  const auto bytes = state.Bytes(Read<std::uint64_t>(state));
  std::unique_ptr<MatrixBase> part;
  try {
    part = Load<MatrixBase>(bytes.data(), bytes.size());
  } catch (const StateError& error) {
    state.Fail(std::string("a part of the statistics: ") + error.what());
  }
  Shape expected = ShapeOf(definition);
  expected.hasCases = true;
  expected.hasRegWeights = definition.hasRegWeights;
  const Shape shape = StateOf<MatrixBase>::GetShape(*part);
  const std::string difference = Difference(shape, expected);
  state.Check(difference.empty(), ("a part of the statistics has " + difference).c_str());
  state.Check(shape.hasCases && part->NRows() <= kMostPartRows,
              "a part of the statistics has no rows, or too many");
  state.Check(WithMatrix(definition, *part,
                         [](const auto& matrix) {
                           return matrix.WeightSum() > 0. && matrix.RegWeightSum() > 0.;
                         }),
              "a part of the statistics weighs nothing");
  return part;
}

}  // namespace

void WriteHead(SummaryContent content, const SummaryDefinition& definition, const SummaryRows& rows,
               StateWriter& state) {
  for (const unsigned char c : kMagic) {
    state.Number(c);
  }
  state.Number(kVersion);
  state.Number(static_cast<std::uint32_t>(content));
  state.Number(std::uint64_t{0});  // the size, at kSizeAt
  state.Number((definition.missing == MissingRule::Listwise ? kListwise : 0U) |
               (definition.hasWeights ? kWeights : 0U) |
               (definition.hasRegWeights ? kRegWeights : 0U));
  state.Number(static_cast<std::uint32_t>(definition.columns.size()));
  state.Number(static_cast<std::uint32_t>(definition.firstSide));
  state.Number(static_cast<std::uint32_t>(definition.blockRows));
  for (const std::uint64_t count :
       {rows.used, rows.withoutWeight, rows.weightless, rows.incomplete}) {
    state.Number(count);
  }
  for (const SummaryColumn& column : definition.columns) {
    WriteColumnHead(column, state);
  }
}

std::vector<std::byte> Finish(StateWriter& state) { return state.Finish(kSizeAt); }

SummaryHead ReadHead(SummaryContent content, StateReader& state) {
  ReadMagicAndSize(content, state);
  SummaryHead head;
  SummaryDefinition& definition = head.definition;
  const auto flags = Read<std::uint32_t>(state);
  state.Check(flags <= (kListwise | kWeights | kRegWeights), "unknown flags");
  definition.missing = (flags & kListwise) != 0 ? MissingRule::Listwise : MissingRule::Pairwise;
  definition.hasWeights = (flags & kWeights) != 0;
  definition.hasRegWeights = (flags & kRegWeights) != 0;
  const auto columns = Read<std::uint32_t>(state);
  definition.firstSide = Read<std::uint32_t>(state);
  definition.blockRows = Read<std::uint32_t>(state);
  for (std::uint64_t* const count :
       {&head.rows.used, &head.rows.withoutWeight, &head.rows.weightless, &head.rows.incomplete}) {
    state.Count(*count, kMostRowsOfSummary);
  }
  state.Check(Total(head.rows) <= kMostRowsOfSummary, "more rows than a summary can count");
  state.Expect(columns, 3 * sizeof(std::uint32_t));
  for (std::uint32_t i = 0; i < columns; ++i) {
    definition.columns.push_back(ReadColumnHead(state));
  }
  try {
    const SummaryDefinition normal = Normal(definition);
    state.Check(IsNormal(definition, normal),
                "missing codes or rows of a block that are not in "
                "their normal form");
  } catch (const std::invalid_argument& error) {
    state.Fail(error.what());
  }
  return head;
}

void WriteParts(const Parts& parts, StateWriter& state) {
  state.Number(std::uint64_t{parts.All().size()});
  for (const std::unique_ptr<MatrixBase>& part : parts.All()) {
    const std::vector<std::byte> bytes = Save(*part);
    state.Number(std::uint64_t{bytes.size()});
    state.Bytes(bytes);
  }
}

Parts ReadParts(const SummaryDefinition& definition, std::optional<std::uint64_t> rows,
                StateReader& state) {
  Parts parts;
  const auto count = Read<std::uint64_t>(state);
  std::uint64_t found = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::unique_ptr<MatrixBase> part = ReadPart(definition, state);
    found += part->NRows();
    parts.Append(std::move(part));
    state.Check(parts.All().size() == i + 1, "two parts that should have been merged");
  }
  state.Check(found == rows.value_or(found), "rows that are not there");
  return parts;
}

void WriteLabels(bool areTexts, bool areFixed, const std::vector<GroupLabel>& all,
                 StateWriter& state) {
  state.Number(std::uint32_t{areTexts ? 1U : 0U});
  state.Number(std::uint32_t{areFixed ? 1U : 0U});
  state.Number(std::uint64_t{all.size()});
  for (const GroupLabel& label : all) {
    if (const auto* const text = std::get_if<std::string>(&label)) {
      WriteText(*text, state);
    } else {
      state.Number(*std::get_if<std::int64_t>(&label));
    }
  }
}

LabelsHead ReadLabels(StateReader& state) {
  LabelsHead labels;
  labels.areTexts = ReadFlag(state);
  labels.areFixed = ReadFlag(state);
  const auto count = Read<std::uint64_t>(state);
  state.Expect(count, sizeof(std::uint32_t));
  state.Check(count != 0 || !labels.areFixed, "no groups, though they are known beforehand");
  for (std::uint64_t i = 0; i < count; ++i) {
    if (labels.areTexts) {
      labels.all.emplace_back(ReadText(state));
    } else {
      std::int64_t number = 0;
      state.Number(number);
      labels.all.emplace_back(number);
    }
  }
  return labels;
}

}  // namespace velmor
