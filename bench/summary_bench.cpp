// What does a Summary cost beside Accumulate, taken at once and in pieces? What do groups cost
// beside one summary (Listwise/Summary of as many columns)? And how near does reading a matrix of
// correlations come to copying it?
#include "bench.h"

#include <algorithm>

namespace bench {
namespace {

constexpr std::size_t kCases = 200'000;

// Columns without missing values.
class Table {
 public:
  explicit Table(unsigned columns) : _values(UniformValues(columns * kCases)) {
    definition.missing = velmor::MissingRule::Listwise;
    for (unsigned i = 0; i < columns; ++i) {
      definition.columns.push_back({std::to_string(i), {}, false});
    }
  }

  velmor::TableView View(std::size_t from, std::size_t to) const {
    velmor::TableView view;
    view.rows = to - from;
    for (std::size_t i = 0; i < definition.columns.size(); ++i) {
      view.values.emplace_back(&_values[i * kCases + from]);
    }
    return view;
  }

  velmor::SummaryDefinition definition;

 private:
  std::vector<double> _values;
};

// As many pieces as there are of so many rows.
velmor::Summary Summarized(const Table& table, const velmor::SummaryDefinition& definition,
                           std::size_t rows) {
  velmor::Summary summary(definition);
  for (std::size_t from = 0; from < kCases; from += rows) {
    summary.Update(table.View(from, std::min(kCases, from + rows)), {1, {}});
  }
  return summary;
}

void RegisterUpdates(unsigned columns) {
  const auto table = std::make_shared<const Table>(columns);
  const auto add = [columns, table](const std::string& name, auto work) {
    RegisterTimed(name + "/p:" + std::to_string(columns), [=](benchmark::State& state) {
      Time(
          state, static_cast<double>(Triangle(columns) * kCases), [] {},
          [&] { benchmark::DoNotOptimize(work(*table)); });
    });
  };
  for (const bool isPairwise : {false, true}) {
    velmor::SummaryDefinition definition = table->definition;
    definition.missing = isPairwise ? velmor::MissingRule::Pairwise : velmor::MissingRule::Listwise;
    const std::string rule = isPairwise ? "Pairwise" : "Listwise";
    add(rule + "/Accumulate", [isPairwise](const Table& data) {
      const velmor::TableView all = data.View(0, kCases);
      const velmor::AccumulateOptions options{0, 0, 1, {}};
      return isPairwise
                 ? velmor::Accumulate(all, velmor::SMatrixPairwise(kMissing), options).NRows()
                 : velmor::Accumulate(all, velmor::SMatrixListwise(), options).NRows();
    });
    for (const std::size_t rows : {kCases, std::size_t{1000}}) {
      add(rule + "/Summary/rows:" + std::to_string(rows), [definition, rows](const Table& data) {
        return Summarized(data, definition, rows).Rows().used;
      });
    }
  }
}

// Rows of so many groups, which come in no order.
void RegisterGroups(unsigned columns) {
  const auto table = std::make_shared<const Table>(columns);
  for (const unsigned groups : {1U, 10U, 5000U, 50000U}) {
    std::vector<std::uint32_t> labels(kCases);
    for (std::size_t i = 0; i < kCases; ++i) {
      labels[i] = static_cast<std::uint32_t>((i * 2654435761U >> 7U) % groups);
    }
    RegisterTimed("Groups/groups:" + std::to_string(groups) + "/p:" + std::to_string(columns),
                  [columns, table, labels](benchmark::State& state) {
                    velmor::GroupSummaryDefinition definition;
                    definition.columns = table->definition.columns;
                    definition.hasTextLabels = false;
                    const velmor::GroupView view{velmor::ColumnView(labels.data()), {}};
                    Time(
                        state, static_cast<double>(Triangle(columns) * kCases), [] {},
                        [&] {
                          velmor::GroupSummary summary(definition);
                          summary.Update(table->View(0, kCases), view, {1, {}});
                          benchmark::DoNotOptimize(summary.WeightSum());
                        });
                  });
  }
}

void RegisterReading(unsigned columns) {
  const Table table(columns);
  velmor::SummaryDefinition definition = table.definition;
  const std::size_t cells = std::size_t{columns} * columns;
  const auto summary = std::make_shared<velmor::Summary>(definition);
  summary->Update(table.View(0, 2000));
  summary->WeightSum();
  const auto from = std::make_shared<std::vector<double>>(cells, 1.);
  const auto to = std::make_shared<std::vector<double>>(cells, 0.);
  const auto add = [&](const std::string& name, auto work) {
    RegisterTimed(name + "/p:" + std::to_string(columns), [=](benchmark::State& state) {
      Time(
          state, static_cast<double>(cells), [] {}, work);
    });
  };
  add("Correlations/memcpy", [from, to] { std::copy(from->begin(), from->end(), to->begin()); });
  add("Correlations/Summary",
      [summary, to, columns] { summary->Correlations(to->data(), columns); });
}

}  // namespace

void Register() {
  for (const unsigned columns : {4U, 12U, 48U, 240U}) {
    RegisterUpdates(columns);
  }
  RegisterGroups(12);
  RegisterReading(1000);
}

}  // namespace bench
