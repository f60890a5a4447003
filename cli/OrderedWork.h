// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace reflyze::cli {

// Pieces of work 0, 1, 2 ..., done by several threads and handed out in order. Pieces are begun in order. How
// many are begun or done and not yet handed out is bounded, so that results do not pile up behind one long
// piece.
template <class Result>
class OrderedWork {
 public:
  // `work(i)` does one piece, on any thread and several at once. With one thread, or where the system gives
  // none, a piece is done on the caller's thread when it is asked for.
  OrderedWork(size_t pieces, size_t threads, std::function<Result(size_t)> work)
      : pieces_(pieces), work_(std::move(work)) {
    const size_t most = std::min(threads, pieces);
    ahead_ = most + kAhead;
    if (most < 2) return;
    try {
      while (threads_.size() < most) threads_.emplace_back([this] { DoPieces(); });
    } catch (const std::system_error&) {
      // The system gives no more threads. Those that have started do the work.
    }
  }
  OrderedWork(const OrderedWork&) = delete;
  OrderedWork& operator=(const OrderedWork&) = delete;
  // Finishes the pieces that are being done and leaves the others undone.
  ~OrderedWork() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      waiting_.clear();
      closed_ = true;
    }
    wake_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  // The result of the next piece in order, once it is there, or the exception that it ended in. May be called
  // once for each piece.
  Result Next() {
    if (threads_.empty()) return work_(next_++);
    for (; next_ < pieces_ && begun_.size() < ahead_; ++next_) Begin(next_);
    std::future<Result> first = std::move(begun_.front());
    begun_.pop_front();
    return first.get();
  }

 private:
  static constexpr size_t kAhead = 16;  // results are small beside the records that they come from

  void Begin(size_t piece) {
    std::packaged_task<Result()> task([this, piece] { return work_(piece); });
    begun_.push_back(task.get_future());
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      waiting_.push_back(std::move(task));
    }
    wake_.notify_one();
  }

  void DoPieces() {
    for (std::unique_lock<std::mutex> lock(mutex_);; lock.lock()) {
      wake_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
      if (waiting_.empty()) return;
      std::packaged_task<Result()> task = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      task();
    }
  }

  const size_t pieces_;
  const std::function<Result(size_t)> work_;
  size_t ahead_ = 0;                       // most pieces begun and not handed out
  size_t next_ = 0;                        // first piece that was not begun
  std::deque<std::future<Result>> begun_;  // only the caller's thread uses it and the two above

  std::mutex mutex_;  // guards the two below
  std::deque<std::packaged_task<Result()>> waiting_;
  bool closed_ = false;
  std::condition_variable wake_;
  std::vector<std::thread> threads_;
};

}  // namespace reflyze::cli
