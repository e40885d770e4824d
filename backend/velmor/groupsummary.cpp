// groupsummary.cpp: statistics of columns in groups of rows; start at GroupSummary::Data::Update.
#include <velmor/accumulate.h>
#include <velmor/groupsummary.h>

#include "ordered/floatenvironment.h"
#include "summary/bytes.h"
#include "summary/definition.h"
#include "summary/foreach.h"
#include "summary/groupedrows.h"
#include "summary/kept.h"
#include "summary/labels.h"
#include "summary/matrices.h"
#include "summary/parts.h"
#include "summary/pooled.h"
#include "summary/records.h"
#include "summary/rowcounts.h"
#include "summary/sequence.h"
#include "summary/stage.h"
#include "summary/utf8.h"
#include "summary/weights.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {

struct GroupSummary::Data {
  Data(GroupSummaryDefinition given, SummaryDefinition normal);
  explicit Data(const GroupSummaryDefinition& given);

  class Update;

  bool IsFixed() const { return !definition.groups.empty(); }
  bool HasRows() const { return Total(rows) + withoutGroup != 0; }
  // Adds a group's rows behind those that it has. New labels come behind.
  void Append(const GroupLabel& label, const Parts& parts);
  // The rows of all groups, for reading.
  const std::vector<Parts>& Closed() const;
  const Parts& Closed(std::size_t group) const;
  void CheckColumn(std::size_t column) const;

  GroupSummaryDefinition definition;
  SummaryDefinition common;  // of each group
  SummaryRows rows;
  std::uint64_t withoutGroup = 0;
  Labels labels;
  std::vector<std::unique_ptr<Sequence>> groups;
  Kept<std::vector<Parts>> closed;
};

namespace {

SummaryDefinition CommonDefinition(const GroupSummaryDefinition& definition) {
  return Normal({definition.columns, 0, MissingRule::Listwise, definition.hasWeights, false,
                 definition.blockRows});
}

std::string LabelText(const GroupLabel& label) {
  const auto* const text = std::get_if<std::string>(&label);
  return text != nullptr ? Quoted(*text) : std::to_string(*std::get_if<std::int64_t>(&label));
}

void CheckLabel(const GroupLabel& label, bool isText, std::size_t group) {
  const auto* const text = std::get_if<std::string>(&label);
  if ((text != nullptr) != isText || (text != nullptr && !IsUtf8(*text))) {
    throw std::invalid_argument("group " + std::to_string(group) + ": its label is no " +
                                (isText ? "text in UTF-8" : "whole number"));
  }
}

// What keeps summaries of these definitions from being merged, as b's, not a's.
std::string GroupDifference(const GroupSummaryDefinition& a, const SummaryDefinition& commonA,
                            const GroupSummaryDefinition& b, const SummaryDefinition& commonB) {
  std::string difference = Difference(commonA, commonB);
  if (!difference.empty()) {
    return difference;
  }
  if (a.hasTextLabels != b.hasTextLabels) {
    return b.hasTextLabels ? "groups have texts as labels, not numbers"
                           : "groups have numbers as labels, not texts";
  }
  if (a.groups.size() != b.groups.size()) {
    return std::to_string(b.groups.size()) + " groups are known beforehand, not " +
           std::to_string(a.groups.size());
  }
  const auto [own, other] = std::mismatch(a.groups.begin(), a.groups.end(), b.groups.begin());
  return own == a.groups.end() ? ""
                               : "group " + std::to_string(own - a.groups.begin()) + " is " +
                                     LabelText(*other) + ", not " + LabelText(*own);
}

}  // namespace

GroupSummary::Data::Data(GroupSummaryDefinition given, SummaryDefinition normal)
    : definition(std::move(given)), common(std::move(normal)) {
  definition.columns = common.columns;
  definition.blockRows = common.blockRows;
  for (std::size_t i = 0; i < definition.groups.size(); ++i) {
    const GroupLabel& label = definition.groups[i];
    CheckLabel(label, definition.hasTextLabels, i);
    if (labels.Find(label) != Labels::kNone) {
      throw std::invalid_argument("group " + std::to_string(i) + ", " + LabelText(label) +
                                  ": there is another group of this label");
    }
    Append(label, Parts());
  }
}

GroupSummary::Data::Data(const GroupSummaryDefinition& given)
    : Data(given, CommonDefinition(given)) {}

void GroupSummary::Data::Append(const GroupLabel& label, const Parts& parts) {
  const std::uint32_t number = labels.Add(label);
  if (number == groups.size()) {
    groups.push_back(std::make_unique<Sequence>(common, parts.Copy(common)));
  } else {
    Parts all = groups[number]->Close();
    all.Append(parts, common);
    groups[number] = std::make_unique<Sequence>(common, std::move(all));
  }
}

const std::vector<Parts>& GroupSummary::Data::Closed() const {
  return closed.Get([this] {
    std::vector<Parts> all;
    for (const auto& group : groups) {
      all.push_back(group->Close());
    }
    return all;
  });
}

const Parts& GroupSummary::Data::Closed(std::size_t group) const {
  if (group >= groups.size()) {
    throw std::out_of_range("there is no group " + std::to_string(group) + " among " +
                            std::to_string(groups.size()));
  }
  return Closed()[group];
}

void GroupSummary::Data::CheckColumn(std::size_t column) const {
  if (column >= common.columns.size()) {
    throw std::out_of_range("there is no column " + std::to_string(column) + " in a summary of " +
                            std::to_string(common.columns.size()));
  }
}

// Rows on their way. What is built is kept aside until nothing can fail any more.
class GroupSummary::Data::Update {
 public:
  Update(Data& data, const TableView& table, const GroupView& view, const UpdateOptions& options)
      : _data(data),
        _change(data.closed),
        _table(table),
        _marked(Marked(data.common, table)),
        _options(options),
        _before(data.labels.Count()),
        _lookup(view, data.definition.hasTextLabels, data.IsFixed(), data.labels),
        _weights(table, [this](std::uint64_t row) {
          return _numbers[static_cast<std::size_t>(row - _first)] == Labels::kNone;
        }) {}
  ~Update() {
    if (!_isDone) {
      _data.labels.GoBackTo(_before);
    }
  }
  Update(const Update&) = delete;
  Update& operator=(const Update&) = delete;

  void TakeAll() {
    std::optional<GroupedRows> chunk;
    for (_first = 0; _first < _table.rows; _first += _numbers.size()) {
      Report(_first);
      if (!chunk || chunk->MostRows() < ChunkRows()) {
        chunk.emplace(_data.common.columns.size(), _data.common.hasWeights, ChunkRows());
      }
      TakeChunk(*chunk);
    }
    Report(_table.rows);
    Finish();
  }

 private:
  // As many rows as a second-level cache holds; of many groups more, so that each has some.
  unsigned ChunkRows() const {
    constexpr std::uint64_t kLeastValues = std::uint64_t{1} << 16U;
    constexpr std::uint64_t kMostValues = std::uint64_t{1} << 20U;
    constexpr std::uint64_t kRowsOfGroup = 32;
    const std::uint64_t columns = _data.common.columns.size();
    const std::uint64_t values =
        std::clamp(kRowsOfGroup * columns * _data.labels.Count(), kLeastValues, kMostValues);
    return static_cast<unsigned>(
        std::min(std::max<std::uint64_t>(values / columns, 1024), _table.rows));
  }

  void Report(std::uint64_t taken) const {
    if (_options.progress && !_options.progress(taken)) {
      throw Cancelled("the update was cancelled after " + std::to_string(taken) + " of " +
                      std::to_string(_table.rows) + " rows");
    }
  }

  void TakeChunk(GroupedRows& chunk) {
    _numbers.resize(std::min<std::uint64_t>(chunk.MostRows(), _table.rows - _first));
    _lookup.Read(_first, _numbers);
    _weights.GoTo(_first + _numbers.size());
    try {
      chunk.Take(_marked, _first, _numbers);
    } catch (const std::invalid_argument&) {
      ThrowRefusal(_data.common, _marked, _first, _first + _numbers.size());
      throw;
    }
    _withoutGroup += static_cast<std::uint64_t>(
        std::count(_numbers.begin(), _numbers.end(), std::uint32_t{Labels::kNone}));
    const auto& runs = chunk.Runs();
    for (const GroupedRows::Run& run : runs) {
      MakeUpdate(run.group);
      _used += run.count;
    }
    // Of few groups, each takes the threads; of many, threads take groups.
    const bool isOfMany = runs.size() > 16;
    const auto add = [&](std::size_t i) {
      _updates[runs[i].group]->Add(chunk.View(runs[i]), {isOfMany ? 1 : _options.threads, {}});
    };
    ForEach(runs.size(), isOfMany ? _options.threads : 1, add);
  }

  // Makes place for rows of a group; one that was unknown gets a sequence.
  void MakeUpdate(std::uint32_t group) {
    if (_updates.size() <= group) {
      _updates.resize(_data.labels.Count());
    }
    if (_updates[group]) {
      return;
    }
    Sequence* sequence = nullptr;
    if (group < _before) {
      sequence = _data.groups[group].get();
    } else {
      _met.push_back(_data.labels.All()[group]);
      _new.push_back(std::make_unique<Sequence>(_data.common, Parts()));
      sequence = _new.back().get();
    }
    _updates[group] = std::make_unique<Sequence::Update>(*sequence);
    _touched.push_back(group);
  }

  // Labels that were met in rows that are left out are forgotten, and the others come in the order
  // of their first rows.
  void Finish() {
    _data.labels.GoBackTo(_before);
    for (GroupLabel& label : _met) {
      _data.labels.Add(std::move(label));
    }
    _data.groups.reserve(_data.groups.size() + _new.size());
    for (const std::uint32_t group : _touched) {
      _updates[group]->Prepare();
    }
    // Nothing fails from here on.
    for (const std::uint32_t group : _touched) {
      _updates[group]->Commit();
    }
    std::move(_new.begin(), _new.end(), std::back_inserter(_data.groups));
    _change.Forget();
    _data.withoutGroup += _withoutGroup;
    const std::uint64_t leftOut = _withoutGroup + _weights.WithoutWeight() + _weights.Weightless();
    _data.rows = Sum(_data.rows, {_used, _weights.WithoutWeight(), _weights.Weightless(),
                                  _table.rows - _used - leftOut});
    _isDone = true;
  }

  Data& _data;
  Kept<std::vector<Parts>>::Change _change;
  const TableView& _table;
  TableView _marked;
  const UpdateOptions& _options;
  std::size_t _before;  // groups
  GroupLookup _lookup;
  std::uint64_t _first = 0;             // row of those that are being taken
  std::vector<std::uint32_t> _numbers;  // the groups of these rows
  WeightCheck _weights;
  std::vector<GroupLabel> _met;                 // new ones, in the order of their first rows
  std::vector<std::unique_ptr<Sequence>> _new;  // their rows
  std::vector<std::unique_ptr<Sequence::Update>> _updates;  // by group; null without rows
  std::vector<std::uint32_t> _touched;                      // the groups that have one
  std::uint64_t _used = 0;
  std::uint64_t _withoutGroup = 0;
  bool _isDone = false;
};

GroupSummary::GroupSummary(const GroupSummaryDefinition& definition) {
  const DefaultFloatEnvironment environment;
  _my = std::make_unique<Data>(definition);
}
GroupSummary::GroupSummary(std::unique_ptr<Data> my) noexcept : _my(std::move(my)) {}
GroupSummary::~GroupSummary() = default;
GroupSummary::GroupSummary(GroupSummary&& other) noexcept = default;
GroupSummary& GroupSummary::operator=(GroupSummary&& other) noexcept = default;

GroupSummary GroupSummary::Copy() const {
  const DefaultFloatEnvironment environment;
  auto copy = std::make_unique<Data>(_my->definition);
  copy->rows = _my->rows;
  copy->withoutGroup = _my->withoutGroup;
  copy->labels = _my->labels;
  copy->groups.clear();
  _my->closed.Alone([&] {
    for (const auto& group : _my->groups) {
      copy->groups.push_back(std::make_unique<Sequence>(group->Copy(copy->common)));
    }
  });
  return GroupSummary(std::move(copy));
}

const GroupSummaryDefinition& GroupSummary::Definition() const { return _my->definition; }

void GroupSummary::Update(const TableView& table, const GroupView& groups,
                          const UpdateOptions& options) {
  const DefaultFloatEnvironment environment;
  CheckColumns(_my->common, table);
  if (table.rows == 0) {
    return;
  }
  CheckColumn(groups.numbers, {}, "groups");
  CheckRoom(Total(_my->rows) + _my->withoutGroup, table.rows);
  Data::Update(*_my, table, groups, options).TakeAll();
}

void GroupSummary::Merge(const GroupSummary& other) {
  _my->closed.Alone([] {});  // it may not be this summary's update that calls
  GroupSummary merged = MergeAll({this, &other});
  if (other._my->HasRows()) {
    *this = std::move(merged);
  }
}

GroupSummary GroupSummary::MergeAll(const std::vector<const GroupSummary*>& summaries) {
  const DefaultFloatEnvironment environment;
  if (summaries.empty()) {
    throw std::invalid_argument("no summary to merge");
  }
  const Data& first = *summaries.front()->_my;
  std::vector<const GroupSummary*> some;
  std::uint64_t rows = 0;
  for (std::size_t i = 0; i < summaries.size(); ++i) {
    const Data& next = *summaries[i]->_my;
    const std::string difference =
        GroupDifference(first.definition, first.common, next.definition, next.common);
    if (!difference.empty()) {
      throw std::invalid_argument("summary " + std::to_string(i) +
                                  " does not belong to the first: " + difference);
    }
    const std::uint64_t more = Total(next.rows) + next.withoutGroup;
    CheckRoom(rows, more);
    rows += more;
    if (next.HasRows()) {
      some.push_back(summaries[i]);
    }
  }
  if (some.empty()) {
    return GroupSummary(first.definition);
  }
  const auto append = [](Data& all, const Data& next) {
    for (std::size_t i = 0; i < next.groups.size(); ++i) {
      all.Append(next.labels.All()[i], next.Closed()[i]);
    }
    all.rows = Sum(all.rows, next.rows);
    all.withoutGroup += next.withoutGroup;
  };
  auto whole = BalancedTree(
      some.size(),
      [&](std::size_t i) {
        auto closed = std::make_unique<Data>(first.definition);
        append(*closed, *some[i]->_my);
        return closed;
      },
      [&](std::unique_ptr<Data>& left, const std::unique_ptr<Data>& right) {
        append(*left, *right);
      });
  return GroupSummary(std::move(whole));
}

SummaryRows GroupSummary::Rows() const { return _my->rows; }
std::uint64_t GroupSummary::WithoutGroup() const { return _my->withoutGroup; }
std::size_t GroupSummary::NGroups() const { return _my->groups.size(); }

const GroupLabel& GroupSummary::Label(std::size_t group) const {
  _my->Closed(group);
  return _my->labels.All()[group];
}

std::uint64_t GroupSummary::GroupRows(std::size_t group) const { return Column(group, 0).rows; }

double GroupSummary::GroupWeightSum(std::size_t group) const { return Column(group, 0).weightSum; }

ColumnStatistics GroupSummary::Column(std::size_t group, std::size_t column) const {
  const DefaultFloatEnvironment environment;
  _my->CheckColumn(column);
  return ColumnOf(_my->common, _my->Closed(group), column);
}

void GroupSummary::CrossProducts(std::size_t group, double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->common, _my->Closed(group)).CrossProducts({to, rowStride});
}

void GroupSummary::Covariances(std::size_t group, double* to, std::size_t rowStride,
                               double ddof) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->common, _my->Closed(group)).Covariances({to, rowStride}, ddof, 1);
}

double GroupSummary::WeightSum() const {
  const DefaultFloatEnvironment environment;
  return PooledMeans(_my->common, _my->Closed()).WeightSum();
}

double GroupSummary::Mean(std::size_t column) const {
  const DefaultFloatEnvironment environment;
  _my->CheckColumn(column);
  return PooledMeans(_my->common, _my->Closed()).Mean(column);
}

void GroupSummary::WithinProducts(double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  FillZeros(_my->common, {to, rowStride});
  AddWithin(_my->common, _my->Closed(), {to, rowStride});
}

void GroupSummary::BetweenProducts(double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  FillZeros(_my->common, {to, rowStride});
  PooledMeans(_my->common, _my->Closed()).AddBetween({to, rowStride});
}

void GroupSummary::TotalProducts(double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  FillZeros(_my->common, {to, rowStride});
  AddWithin(_my->common, _my->Closed(), {to, rowStride});
  PooledMeans(_my->common, _my->Closed()).AddBetween({to, rowStride});
}

std::vector<std::byte> GroupSummary::Save() const {
  const DefaultFloatEnvironment environment;
  StateWriter state;
  WriteHead(SummaryContent::Groups, _my->common, _my->rows, state);
  WriteLabels(_my->definition.hasTextLabels, _my->IsFixed(), _my->labels.All(), state);
  state.Number(_my->withoutGroup);
  for (const Parts& parts : _my->Closed()) {
    WriteParts(parts, state);
  }
  return Finish(state);
}

GroupSummary GroupSummary::Load(const std::byte* bytes, std::size_t size) {
  const DefaultFloatEnvironment environment;
  StateReader state({bytes, size});
  SummaryHead head = ReadHead(SummaryContent::Groups, state);
  state.Check(head.definition.missing == MissingRule::Listwise && head.definition.firstSide == 0 &&
                  !head.definition.hasRegWeights,
              "groups of another kind of summary");
  LabelsHead labels = ReadLabels(state);
  GroupSummaryDefinition definition{head.definition.columns,
                                    labels.areTexts,
                                    {},
                                    head.definition.hasWeights,
                                    head.definition.blockRows};
  if (labels.areFixed) {
    definition.groups = labels.all;
  }
  std::unique_ptr<Data> loaded;
  try {
    loaded = std::make_unique<Data>(definition);
  } catch (const std::invalid_argument& error) {
    state.Fail(error.what());
  }
  state.Count(loaded->withoutGroup, kMostRowsOfSummary - Total(head.rows));
  loaded->rows = head.rows;
  std::uint64_t used = 0;
  for (std::size_t i = 0; i < labels.all.size(); ++i) {
    state.Check(labels.areFixed || loaded->labels.Find(labels.all[i]) == Labels::kNone,
                "two groups of one label");
    Parts parts = ReadParts(loaded->common, std::nullopt, state);
    state.Check(labels.areFixed || !parts.All().empty(), "a group without rows");
    for (const auto& part : parts.All()) {
      used += part->NRows();
    }
    if (labels.areFixed) {
      *loaded->groups[i] = Sequence(loaded->common, std::move(parts));
    } else {
      loaded->labels.Add(std::move(labels.all[i]));
      loaded->groups.push_back(std::make_unique<Sequence>(loaded->common, std::move(parts)));
    }
  }
  state.Check(used == head.rows.used, "rows that are not there");
  state.Check(state.IsAtEnd(), "there are bytes too many");
  return GroupSummary(std::move(loaded));
}

}  // namespace velmor
