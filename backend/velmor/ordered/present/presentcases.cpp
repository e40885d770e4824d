// presentcases.cpp: the present cases of variables and pairs; start at AccumulatePairwise.
//
// The columns of a pattern are present in the same cases, and all pairs of columns of two patterns
// have the same cases. So the columns of two patterns that are wide enough are taken together
// (patterntask.h). What is left are columns with patterns of their own (columntask.h).
//
// Either way it takes two passes over the rows: the means, then products of distances from them.
#include "ordered/present/presentcases.h"

#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"
#include "ordered/panels.h"
#include "ordered/present/columntask.h"
#include "ordered/present/packedbatch.h"
#include "ordered/present/patterntask.h"
#include "ordered/present/results.h"
#include "ordered/tiles.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <span>

namespace velmor::ordered {
namespace {

// Works tasks off, as many at a time as the memory for running sums allows.
class Runner {
 public:
  Runner(const PackedBatch& batch, std::span<PatternTask> patternTasks,
         std::span<ColumnTask> columnTasks, Workspace& workspace)
      : _batch(batch),
        _sums(workspace.Take<double>(std::max(SumsSize(patternTasks), SumsSize(columnTasks)))),
        _scratch(
            workspace.Take<double>(std::max(ScratchSize(patternTasks), ScratchSize(columnTasks)))) {
  }

  template <class Task>
  void Run(std::span<Task> tasks, Results& results) {
    while (!tasks.empty()) {
      const std::size_t count = CountAtOnce(tasks);
      RunAtOnce(tasks.first(count), results);
      tasks = tasks.subspan(count);
    }
  }

 private:
  template <class Task>
  static std::size_t CountAtOnce(std::span<Task> tasks) {
    std::size_t count = 0;
    for (std::size_t size = 0; count < tasks.size(); ++count) {
      size += tasks[count].Size();
      if (size > kSumsAtOnce && count > 0) {
        break;
      }
    }
    return count;
  }

  template <class Task>
  static std::size_t SumsSize(std::span<Task> tasks) {
    std::size_t all = 0;
    std::size_t largest = 0;
    for (const Task& task : tasks) {
      all += task.Size();
      largest = std::max(largest, task.Size());
    }
    return std::min(all, std::max(kSumsAtOnce, largest));
  }

  template <class Task>
  static std::size_t ScratchSize(std::span<Task> tasks) {
    std::size_t largest = 0;
    for (const Task& task : tasks) {
      largest = std::max(largest, task.ScratchSize());
    }
    return largest;
  }

  template <class Task>
  void RunAtOnce(std::span<Task> tasks, Results& results) {
    const auto forEach = [&](auto visit) {
      double* sums = _sums;
      for (Task& task : tasks) {
        visit(task, sums);
        sums += task.Size();
      }
    };
    const auto pass = [&](auto step, bool needsPanels) {
      ForEachStrip(_batch.cases.rows, [&](std::size_t from, std::size_t rows) {
        const Strip strip{from, rows};
        if (needsPanels) {
          _batch.Pack(strip);
        }
        forEach([&](Task& task, double* sums) { (task.*step)(strip, sums, _scratch); });
      });
    };
    forEach([](Task& task, double* sums) { std::fill_n(sums, task.Size(), 0.); });
    pass(&Task::Sum, std::any_of(tasks.begin(), tasks.end(),
                                 [](const Task& task) { return task.SumsPanels(); }));
    forEach([](Task& task, double* sums) { task.FinishMeans(sums); });
    pass(&Task::Multiply, true);
    forEach([&](Task& task, double* sums) { task.HandOver(sums, results); });
  }

  const PackedBatch& _batch;
  double* _sums;
  double* _scratch;  // the centred panels of a task's strip of rows
};

}  // namespace

void AccumulatePairwise(const PairwiseCases& cases, WantedPairs wanted,
                        const PairwiseRecords& records) {
  Workspace workspace;
  const PackedBatch batch(EngineFor(cases.columns.count), cases, wanted, workspace);
  const std::span<PatternTask> patternTasks = PatternTasks(batch, workspace);
  const std::span<ColumnTask> columnTasks = ColumnTasks(batch, workspace);
  Runner runner(batch, patternTasks, columnTasks, workspace);
  Results results(wanted, records);
  runner.Run(patternTasks, results);
  runner.Run(columnTasks, results);
}

}  // namespace velmor::ordered
