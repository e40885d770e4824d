// statistics.cpp: the public records and handles; their arithmetic is in presentcases.h.
#include <velmor/statistics.h>

#include "float_environment.h"
#include "presentcases.h"

namespace velmor {

VarStatData::VarStatData() : _min(maxvalue), _max(minvalue) {}

void VarStatData::Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n) {
  const DefaultFloatEnvironment environment;
  InitVariable(*this, x, w, rw, wa, static_cast<std::size_t>(n));
}

void VarStatData::Update(const VarStatData& other) {
  const DefaultFloatEnvironment environment;
  UpdateVariable(*this, other);
}

void PairStatData::Init(const double* x0, const double* x1, const double* w, const double* rw,
                        WorkArea& wa, int n) {
  const DefaultFloatEnvironment environment;
  InitPair(*this, x0, x1, w, rw, wa, static_cast<std::size_t>(n));
}

void PairStatData::Update(const PairStatData& other) {
  const DefaultFloatEnvironment environment;
  UpdatePair(*this, other);
}

VarStat::VarStat() : _data(std::make_unique<VarStatData>()) {}
VarStat::VarStat(VarStatData* data) : _data(data) {}
VarStat::~VarStat() = default;

void VarStat::Init(const double* x, const double* w, const double* rw, WorkArea& wa, int n) {
  _data->Init(x, w, rw, wa, n);
}

void VarStat::Update(VarStat& other) { _data->Update(*other._data); }

VarStat* VarStat::Copy() const {
  auto copy = std::make_unique<VarStat>();
  *copy->_data = *_data;
  return copy.release();
}

PairStat::PairStat() : _data(std::make_unique<PairStatData>()) {}
PairStat::PairStat(PairStatData* data) : _data(data) {}
PairStat::~PairStat() = default;

void PairStat::Init(const double* x0, const double* x1, const double* w, const double* rw,
                    WorkArea& wa, int n) {
  _data->Init(x0, x1, w, rw, wa, n);
}

void PairStat::Update(PairStat& other) { _data->Update(*other._data); }

PairStat* PairStat::Copy() const {
  auto copy = std::make_unique<PairStat>();
  *copy->_data = *_data;
  return copy.release();
}

}  // namespace velmor
