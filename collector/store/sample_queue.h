#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "collector/store/sample.h"
#include "collector/store/temporary_file.h"

namespace tarvex::collector {

/// Samples of one kind, kept in bounded memory: those that do not fit lie in a temporary file. Reentrant.
template <typename Sample>
class SampleQueue {
public:
    /// `directory`: of the temporary file.
    explicit SampleQueue(std::filesystem::path directory) : directory_(std::move(directory)) {}

    /// Throws `std::system_error`, the disk being full for one reason.
    void push(const Sample& sample);

    std::uint64_t size() const { return size_; }

    /// Shows the samples in batches, each of them sorted and without repeats inside it. Throws `std::system_error`.
    void visit(const std::function<void(std::span<const Sample>)>& look) const;

private:
    std::filesystem::path directory_;
    std::optional<TemporaryFile> file_;
    std::vector<std::byte> buffer_;  ///< whole samples that the file does not hold yet
    std::uint64_t size_ = 0;
};

}  // namespace tarvex::collector
