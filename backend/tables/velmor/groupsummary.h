#pragma once

#include <velmor/summary.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// What a group is called: a whole number, or a text in UTF-8.
class GroupLabel : public std::variant<std::int64_t, std::string> {
 public:
  using variant::variant;
  // A text is copied before there is a variant to hold it: libstdc++ destroys a variant of a string
  // whose copying threw as if it held one.
  GroupLabel(const GroupLabel& other) : variant(Copied(other)) {}
  GroupLabel& operator=(const GroupLabel& other) { return *this = GroupLabel(other); }
  GroupLabel(GroupLabel&& other) noexcept = default;
  GroupLabel& operator=(GroupLabel&& other) noexcept = default;
  ~GroupLabel() = default;

 private:
  static variant Copied(const variant& other) {
    const auto* const text = std::get_if<std::string>(&other);
    return text != nullptr ? variant(std::string(*text))
                           : variant(*std::get_if<std::int64_t>(&other));
  }
};

struct GroupSummaryDefinition {
  // At most 65535, of different names.
  std::vector<SummaryColumn> columns;
  bool hasTextLabels = true;  // otherwise labels are whole numbers
  // The groups in their order, where they are known beforehand; rows of no other group are then
  // taken. Empty: groups come in the order of their first used rows.
  std::vector<GroupLabel> groups;
  bool hasWeights = false;  // case weights
  // Rows of a block of a group, as SummaryDefinition has it.
  std::uint64_t blockRows = 0;
};

// The groups that the rows of a table belong to. The host's memory stays as it is while it is used.
struct GroupView {
  // A whole number for each row, of any type of integers: the group's label; or, where labels are
  // texts, the place of the label in `texts`. A row whose number is absent belongs to no group.
  ColumnView numbers;
  std::vector<std::string_view> texts;  // can repeat a label
};

// Statistics of named columns in groups of rows, over complete cases: to be updated, merged, read,
// saved and loaded like a Summary. What summary.h says of definitions, marks of missing values,
// weights, bits, threads, memory and errors holds here too. Each group's rows are cut into blocks
// of their own, so its statistics are those of one Accumulate over its complete rows, whatever
// other rows come between them. Records are centred: means that are large beside spreads cost no
// digits.
class GroupSummary {
 public:
  // A summary of no rows. Throws std::invalid_argument; std::bad_alloc.
  explicit GroupSummary(const GroupSummaryDefinition& definition);
  ~GroupSummary();
  GroupSummary(GroupSummary&& other) noexcept;
  GroupSummary& operator=(GroupSummary&& other) noexcept;

  // Another summary that goes on as this one does. O(state). Throws std::bad_alloc.
  GroupSummary Copy() const;

  const GroupSummaryDefinition& Definition() const;

  // Takes the rows of a table. A row is left out if it belongs to no group, else if a weight is
  // missing or 0, else if a value is missing. Rows are copied, some 2^20 values at a time, to be
  // put in the order of their groups; those whose block is not full are kept. O(rows * pairs).
  // Throws as Summary::Update does, leaving the summary as it was, and std::invalid_argument about
  // the first row that has a label of no known group, or that is no label: no integer, too large,
  // or not the place of a text in UTF-8.
  void Update(const TableView& table, const GroupView& groups, const UpdateOptions& options = {});

  // Takes the other's rows behind its own, group by group; the other's groups that are new come
  // behind. Throws as Summary::Merge does.
  void Merge(const GroupSummary& other);

  // As Summary::MergeAll.
  static GroupSummary MergeAll(const std::vector<const GroupSummary*>& summaries);

  // What follows reads, as a Summary is read. Groups and columns are numbered from 0. They throw
  // std::out_of_range where there is no such group or column.

  // `incomplete` and so on count rows of groups; the others are WithoutGroup().
  SummaryRows Rows() const;
  std::uint64_t WithoutGroup() const;
  std::size_t NGroups() const;
  const GroupLabel& Label(std::size_t group) const;

  // Rows and weights of a group, and its statistics of a column.
  std::uint64_t GroupRows(std::size_t group) const;
  double GroupWeightSum(std::size_t group) const;
  ColumnStatistics Column(std::size_t group, std::size_t column) const;

  // Whole symmetric matrices of a group's centred products and covariances, as a Summary's.
  void CrossProducts(std::size_t group, double* to, std::size_t rowStride) const;
  void Covariances(std::size_t group, double* to, std::size_t rowStride, double ddof = 1.) const;

  // Over all groups. With w and m a group's weight sum and means, and M the means of all rows:
  double WeightSum() const;
  double Mean(std::size_t column) const;  // M; NaN without rows
  // The groups' centred products added up: products within the groups. A covariance within them is
  // this over WeightSum() less the number of groups.
  void WithinProducts(double* to, std::size_t rowStride) const;
  // Sum over the groups of w (m - M)(m - M)'.
  void BetweenProducts(double* to, std::size_t rowStride) const;
  // The sum of the two: centred products of all rows.
  void TotalProducts(double* to, std::size_t rowStride) const;

  // As Summary has it. The bytes have the groups in their order.
  std::vector<std::byte> Save() const;
  static GroupSummary Load(const std::byte* bytes, std::size_t size);
  static GroupSummary Load(const std::vector<std::byte>& bytes) {
    return Load(bytes.data(), bytes.size());
  }

 private:
  struct [[gnu::visibility("hidden")]] Data;
  [[gnu::visibility("hidden")]] explicit GroupSummary(std::unique_ptr<Data> my) noexcept;

  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
