// summary.cpp: statistics of named columns, over rows in pieces; start at Summary::Update.
#include <velmor/summary.h>

#include "ordered/floatenvironment.h"
#include "summary/bytes.h"
#include "summary/definition.h"
#include "summary/kept.h"
#include "summary/matrices.h"
#include "summary/parts.h"
#include "summary/records.h"
#include "summary/rowcounts.h"
#include "summary/sequence.h"
#include "summary/weights.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {

struct Summary::Data {
  Data(SummaryDefinition normal, const SummaryRows& counts, Parts parts)
      : definition(std::move(normal)), rows(counts), sequence(definition, std::move(parts)) {}

  bool HasRows() const { return Total(rows) != 0; }
  // All rows, for reading.
  const Parts& Closed() const {
    return closed.Get([this] { return sequence.Close(); });
  }
  // The same for a caller who keeps them.
  Parts Close() const {
    return closed.Alone([this] { return sequence.Close(); });
  }
  // Throws std::out_of_range unless there is such a column.
  void CheckColumn(std::size_t column) const;

  SummaryDefinition definition;
  SummaryRows rows;
  Sequence sequence;
  Kept<Parts> closed;
};

namespace {

void CheckMergeable(const SummaryDefinition& a, const SummaryDefinition& b,
                    const std::string& which) {
  const std::string difference = Difference(a, b);
  if (!difference.empty()) {
    throw std::invalid_argument(which + " does not belong to the first: " + difference);
  }
}

}  // namespace

void Summary::Data::CheckColumn(std::size_t column) const {
  if (column >= definition.columns.size()) {
    throw std::out_of_range("there is no column " + std::to_string(column) + " in a summary of " +
                            std::to_string(definition.columns.size()));
  }
}

Summary::Summary(SummaryDefinition definition) {
  const DefaultFloatEnvironment environment;
  _my = std::make_unique<Data>(Normal(std::move(definition)), SummaryRows(), Parts());
}
Summary::Summary(std::unique_ptr<Data> my) noexcept : _my(std::move(my)) {}
Summary::~Summary() = default;
Summary::Summary(Summary&& other) noexcept = default;
Summary& Summary::operator=(Summary&& other) noexcept = default;

Summary Summary::Copy() const {
  const DefaultFloatEnvironment environment;
  auto copy = std::make_unique<Data>(_my->definition, _my->rows, Parts());
  copy->sequence = _my->closed.Alone([&] { return _my->sequence.Copy(copy->definition); });
  return Summary(std::move(copy));
}

const SummaryDefinition& Summary::Definition() const { return _my->definition; }

void Summary::Update(const TableView& table, const UpdateOptions& options) {
  const DefaultFloatEnvironment environment;
  CheckColumns(_my->definition, table);
  CheckRoom(Total(_my->rows), table.rows);
  if (table.rows == 0) {
    return;
  }
  Kept<Parts>::Change change(_my->closed);
  WeightCheck weights(table);
  UpdateOptions checked{options.threads, [&weights, &options](std::uint64_t rows) {
                          weights.GoTo(rows);
                          return !options.progress || options.progress(rows);
                        }};
  Sequence::Update update(_my->sequence);
  update.Add(Marked(_my->definition, table), checked);
  const std::uint64_t used = update.NUsed();
  update.Prepare();
  update.Commit();
  change.Forget();
  const std::uint64_t leftOut = weights.WithoutWeight() + weights.Weightless();
  _my->rows = Sum(_my->rows, {used, weights.WithoutWeight(), weights.Weightless(),
                              table.rows - used - leftOut});
}

void Summary::Merge(const Summary& other) {
  const DefaultFloatEnvironment environment;
  CheckMergeable(_my->definition, other._my->definition, "the second summary");
  CheckRoom(Total(_my->rows), Total(other._my->rows));
  if (!other._my->HasRows()) {
    return;
  }
  Parts parts = _my->Close();
  parts.Append(other._my->Closed(), _my->definition);
  *this = Summary(
      std::make_unique<Data>(_my->definition, Sum(_my->rows, other._my->rows), std::move(parts)));
}

Summary Summary::MergeAll(const std::vector<const Summary*>& summaries) {
  const DefaultFloatEnvironment environment;
  if (summaries.empty()) {
    throw std::invalid_argument("no summary to merge");
  }
  const SummaryDefinition& definition = summaries.front()->_my->definition;
  std::vector<const Data*> some;
  SummaryRows rows;
  for (std::size_t i = 0; i < summaries.size(); ++i) {
    const Data& next = *summaries[i]->_my;
    CheckMergeable(definition, next.definition, "summary " + std::to_string(i));
    CheckRoom(Total(rows), Total(next.rows));
    rows = Sum(rows, next.rows);
    if (next.HasRows()) {
      some.push_back(&next);
    }
  }
  Parts parts;
  if (!some.empty()) {
    parts = BalancedTree(
        some.size(), [&some](std::size_t i) { return some[i]->Close(); },
        [&definition](Parts& left, const Parts& right) { left.Append(right, definition); });
  }
  return Summary(std::make_unique<Data>(definition, rows, std::move(parts)));
}

SummaryRows Summary::Rows() const { return _my->rows; }

double Summary::WeightSum() const {
  const DefaultFloatEnvironment environment;
  return WeightSumsOf(_my->definition, _my->Closed()).weights;
}

double Summary::RegWeightSum() const {
  const DefaultFloatEnvironment environment;
  return WeightSumsOf(_my->definition, _my->Closed()).combined;
}

ColumnStatistics Summary::Column(std::size_t column) const {
  const DefaultFloatEnvironment environment;
  _my->CheckColumn(column);
  return ColumnOf(_my->definition, _my->Closed(), column);
}

PairStatistics Summary::Pair(std::size_t a, std::size_t b) const {
  const DefaultFloatEnvironment environment;
  _my->CheckColumn(a);
  _my->CheckColumn(b);
  const std::size_t first = _my->definition.firstSide;
  if (a == b || (first != 0 && (a < first) == (b < first))) {
    throw std::out_of_range("columns " + std::to_string(a) + " and " + std::to_string(b) +
                            " are not paired");
  }
  return PairOf(_my->definition, _my->Closed(), a, b, Column(a), Column(b));
}

std::size_t Summary::MatrixRows() const {
  const SummaryDefinition& definition = _my->definition;
  return definition.firstSide != 0 ? definition.firstSide : definition.columns.size();
}

std::size_t Summary::MatrixColumns() const {
  return _my->definition.columns.size() - _my->definition.firstSide;
}

void Summary::CrossProducts(double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->definition, _my->Closed()).CrossProducts({to, rowStride});
}

void Summary::Covariances(double* to, std::size_t rowStride, double ddof,
                          std::uint64_t fewestRows) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->definition, _my->Closed()).Covariances({to, rowStride}, ddof, fewestRows);
}

void Summary::Correlations(double* to, std::size_t rowStride, std::uint64_t fewestRows) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->definition, _my->Closed()).Correlations({to, rowStride}, fewestRows);
}

void Summary::PairRows(std::uint64_t* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->definition, _my->Closed()).PairRows({to, rowStride});
}

void Summary::PairWeightSums(double* to, std::size_t rowStride) const {
  const DefaultFloatEnvironment environment;
  MatrixReader(_my->definition, _my->Closed()).PairWeightSums({to, rowStride});
}

std::vector<std::byte> Summary::Save() const {
  const DefaultFloatEnvironment environment;
  StateWriter state;
  WriteHead(SummaryContent::Summary, _my->definition, _my->rows, state);
  WriteParts(_my->Closed(), state);
  return Finish(state);
}

Summary Summary::Load(const std::byte* bytes, std::size_t size) {
  const DefaultFloatEnvironment environment;
  StateReader state({bytes, size});
  SummaryHead head = ReadHead(SummaryContent::Summary, state);
  Parts parts = ReadParts(head.definition, head.rows.used, state);
  state.Check(state.IsAtEnd(), "there are bytes too many");
  return Summary(std::make_unique<Data>(std::move(head.definition), head.rows, std::move(parts)));
}

}  // namespace velmor
