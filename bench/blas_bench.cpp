// What a BLAS makes of the same columns: a rank-k update of a triangle by columns that are already
// centred, without weights. Its name is that of the kernels that OpenBLAS uses, which the
// environment variable OPENBLAS_CORETYPE chooses.
#include "bench.h"

#include <cblas.h>

void bench::Register() {
  openblas_set_num_threads(1);
  for (const unsigned p : {4U, 12U, 48U, 240U, 960U}) {
    RegisterTimed("SMatrixListwise/p:" + std::to_string(p) + "/BLAS " + openblas_get_corename(),
                  [cases = std::make_shared<Cases>(p), p](benchmark::State& state) {
                    velmor::DataBatch& batch = cases->Refilled();
                    for (unsigned i = 0; i < p; ++i) {
                      double* const x = batch.Column(i);
                      velmor::CenterData(x, velmor::Sum(x, kRows) / kRows, kRows);
                    }
                    std::vector<double> cells(std::size_t{p} * p);
                    const auto size = static_cast<blasint>(p);
                    Time(
                        state, static_cast<double>(Triangle(p)) * kRows, [] {},
                        [&] {
                          cblas_dsyrk(CblasRowMajor, CblasUpper, CblasNoTrans, size, kRows, 1.,
                                      batch.Column(0), kRows, 1., cells.data(), size);
                        });
                  });
  }
}
