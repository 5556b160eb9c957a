#pragma once

#include <algorithm>
#include <cmath>

namespace tarvex::benchmarks {

/// Mean and greatest of the relative errors added to it, in percent and without their signs.
class ErrorSummary {
public:
    void add(double relativeError) {
        const double percent = std::abs(relativeError) * 100;
        sum_ += percent;
        max_ = std::max(max_, percent);
        ++count_;
    }

    double mean() const { return sum_ / std::max(count_, 1); }
    double max() const { return max_; }
    int count() const { return count_; }

private:
    double sum_ = 0;
    double max_ = 0;
    int count_ = 0;
};

}  // namespace tarvex::benchmarks
