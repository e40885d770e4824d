// What the accumulators refuse: each line of assertions.txt ends the process with its message.
// Start at Do.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "support.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <variant>

namespace velmor::test {
namespace {

constexpr double kCode = -9.;
constexpr double kOtherCode = 0.;

Cases CasesOf(const std::string& name) {
  const Cases plain{{{1., 2., 3.}, {4., 6., 5.}}, {}, {}, {0, 1}};
  if (name == "narrow") {
    return {{{1.}, {4.}}, {}, {}, {0, 1}};
  }
  if (name == "weightless") {
    return {plain.rows, {0., 0.}, {}, plain.groups};
  }
  if (name == "regweighted") {
    return {plain.rows, {}, {1., 1.}, plain.groups};
  }
  return name == "ungrouped" ? Cases{plain.rows, {}, {}, {}} : plain;
}

template <class Accumulator>
void Add(Accumulator& a, const std::string& name) {
  const Cases cases = CasesOf(name);
  const auto columns = static_cast<unsigned int>(cases.rows[0].size());
  if constexpr (std::is_same_v<Accumulator, DiscIndividualMatrix>) {
    if (name != "ungrouped") {
      CurrentCase current;
      const auto batch = EmptyBatch<DataBatchByGroup>(cases, columns, 0, current, 2U);
      AddRows(*batch, current, cases);
      if (name != "unsorted") {
        batch->SortByGroup();
      }
      a += *batch;
      return;
    }
  }
  a += *Batch(cases, columns);
}

template <class Accumulator>
void Ask(const Accumulator& a, const std::string& accessor, const std::vector<int>& at) {
  using Number = std::conditional_t<std::is_base_of_v<MatrixBase, Accumulator>, int, unsigned>;
  const auto i = static_cast<Number>(at[0]);
  const auto j = static_cast<Number>(at.size() > 1 ? at[1] : 0);
  if constexpr (requires { a.Var(i); }) {
    accessor == "Var" ? void(a.Var(i)) : void(a.Pair(i, j));
  } else if constexpr (requires { a.sumW(i); }) {
    accessor == "sumW"    ? a.sumW(i)
    : accessor == "sumX1" ? a.sumX1(i, j)
    : accessor == "sumX2" ? a.sumX2(i, j)
                          : a.TSSP(i, j);
  } else if constexpr (requires { a.TSSP(i, j); }) {
    at.size() == 2 ? a.TSSP(i, j) : a.TSSP(i, j, at.at(2));
  } else if (accessor == "CCP" || accessor == "Mean") {
    accessor == "CCP" ? a.CCP(i, j) : a.Mean(i);
  } else if constexpr (requires { a.Min(i); }) {
    accessor == "Min" ? a.Min(i) : a.Max(i);
  }
}

// An accumulator of any class.
template <class Tuple>
struct AnyOf;
template <class... Types>
struct AnyOf<std::tuple<Types...>> {
  using Pointer = std::variant<std::unique_ptr<Types>...>;
};
using Subject = AnyOf<Classes>::Pointer;

// The arguments in the parentheses that a word ends with.
std::vector<int> Arguments(const std::string& word) {
  std::vector<int> arguments;
  std::istringstream text(word.substr(word.find('(') + 1));
  for (int number = 0; text >> number; text.ignore()) {
    arguments.push_back(number);
  }
  return arguments;
}

// Makes the accumulator that a word names, the class's number being kPlace or more.
template <std::size_t kPlace = 0>
Subject MakeSubject(const std::string& word) {
  if constexpr (kPlace < std::variant_size_v<Subject>) {
    using Accumulator = typename std::variant_alternative_t<kPlace, Subject>::element_type;
    const std::size_t name = word.find(NameOf<Accumulator>() + '(');
    const bool isOther = word.starts_with("Other");
    if (name != (isOther ? 5 : 0)) {
      return MakeSubject<kPlace + 1>(word);
    }
    return MakeAccumulator<Accumulator>(isOther ? kOtherCode : kCode, Arguments(word));
  }
  throw std::invalid_argument(word);
}

// Does what the words say, from left to right.
void Do(const std::string& words) {
  std::vector<Subject> subjects;
  const auto visit = [&subjects](auto use) {
    std::visit([&use](auto& a) { use(*a); }, subjects.back());
  };
  std::istringstream text(words);
  for (std::string word; text >> word;) {
    if (word.ends_with(')') && word[0] != '.') {
      subjects.push_back(MakeSubject(word));
    } else if (word == "+") {
      visit([&](auto& b) {
        std::visit(
            [&b](auto& a) {
              if constexpr (requires { *a += b; }) {
                *a += b;
              }
            },
            subjects.at(subjects.size() - 2));
      });
    } else if (word[0] == '.') {
      visit([&](auto& a) { Ask(a, word.substr(1, word.find('(') - 1), Arguments(word)); });
    } else {
      visit([&](auto& a) { Add(a, word); });
    }
  }
}

TEST(AssertionsDeathTest, EndTheProcessWithTheirMessages) {
  std::ifstream lines(ASSERTIONS);
  std::size_t cases = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t arrow = line.find(" => ");
    if (arrow == std::string::npos) {
      continue;
    }
    const std::string message = line.substr(arrow + 4);
    const std::size_t function = message.find(": ") + 2;
    const std::size_t condition = message.find(": ", function) + 2;
    ExpectAbort({line, [&] { Do(line.substr(0, arrow)); }, message.substr(0, function - 2),
                 message.substr(function, condition - 2 - function), message.substr(condition)});
    ++cases;
  }
  EXPECT_GT(cases, 100U);
}

}  // namespace
}  // namespace velmor::test
