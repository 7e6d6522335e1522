#include "core/random.h"
#include "covariance/model_generator.h"
#include "selection/covariance_error.h"
#include "selection/covariance_search.h"
#include "selection/cross_validation.h"
#include "selection/fold.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace talvorix {
namespace {

Fold waves(int n) {
  RandomEngine rng = seeded_engine(6);
  Fold data;
  for (int i = 0; i < n; ++i) {
    data.locations.emplace_back(100.0 * uniform(rng), 60.0 * uniform(rng), 20.0 * uniform(rng));
    data.values.push_back(std::sin(data.locations.back()[0] / 30.0) + 0.2 * uniform(rng));
  }
  return data;
}

std::vector<CovarianceModel> candidates(int n) {
  return generate_covariances(Ellipsoid(60.0, 30.0, 20.0, 40.0, -10.0, 5.0), 2, Kernel::spherical(),
                              n, 5, 40.0, 0.2, 1.0, 0.1, 1.0);
}

TEST(CovarianceSearch, RepeatsForOneThreadCountAndNeverEndsWorseThanItBegan) {
  const Fold data = waves(150);
  const std::vector<Fold> folds = create_folds(data.locations, data.values, 60.0, 30, 5, 3);
  ASSERT_EQ(folds.size(), 5U);
  const std::vector<CovarianceModel> covs = candidates(40);
  for (const int n_threads : {1, 2, 3}) {
    const IdwScoring scoring{{60.0, -1, {5, 9, 3}}, 3.0, 0.001, 9};
    const auto error = create_covariance_idw_error(folds, scoring, n_threads);
    const CovarianceSearch search{60, 60, false};
    const ScoredCovariance first = optimize_covariance(covs, error, search, n_threads);
    const ScoredCovariance second = optimize_covariance(covs, error, search, n_threads);
    EXPECT_EQ(first.error, second.error);
    EXPECT_EQ(to_text(first.model), to_text(second.model));
    EXPECT_LT(first.error, error(covs.front(), n_threads));
    EXPECT_EQ(first.error, error(first.model, 1));
  }
}

TEST(CrossValidation, RepeatsOnSeveralThreads) {
  const Fold data = waves(120);
  const CovarianceModel model =
      single_structure(Ellipsoid(60.0, 60.0, 60.0, 0.0, 0.0, 0.0), Kernel::spherical());
  for (const int max_size : {-1, 0, 30}) {
    const CrossValidation validation{40.0, max_size, {5, 15, 4}};
    const auto tables = [&] {
      return std::vector<ErrorTable>{
          kfold_cross_validation_using_idw(data.locations, data.values, model, validation, 2.5, 7,
                                           2),
          kfold_cross_validation_using_sk(data.locations, data.values, model, validation, 7, 2),
          kfold_cross_validation_using_ok(data.locations, data.values, model, validation, 7, 2)};
    };
    const std::vector<ErrorTable> first = tables();
    EXPECT_EQ(first, tables());
    for (const ErrorTable& table : first) {
      double sum = 0.0;
      for (const std::vector<double>& row : table) {
        for (const double error : row) {
          sum += std::abs(error);
        }
      }
      // The waves are smooth: far better than by the mean, whose errors are about 0.9.
      EXPECT_LT(sum, 0.7 * 4.0 * static_cast<double>(table.size()));
    }
  }
}

}  // namespace
}  // namespace talvorix
