// What all queues have in common: a label, attributes and the knowledge of who runs on them.
#pragma once

#include "vidloom/platform/dispatch/dispatch.h"

namespace vidloom {

/// One queue. Private to this folder: the world outside holds a dispatch_queue_t and calls the dispatch_* functions.
class DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
 public:
  /// Marks the calling thread as running on a queue for as long as it lives. Frames nest.
  class CurrentFrame {
   public:
    CurrentFrame(const DispatchQueue& queue, bool barrier);
    ~CurrentFrame();
    CurrentFrame(const CurrentFrame&) = delete;
    CurrentFrame& operator=(const CurrentFrame&) = delete;

   private:
    friend class DispatchQueue;
    const DispatchQueue* queue_;
    bool barrier_;
    const CurrentFrame* outer_;
  };

  virtual ~DispatchQueue() = default;
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  const std::string& label() const { return label_; }
  const dispatch_queue_attr_t& attributes() const { return attributes_; }
  bool isCurrent() const { return innermostFrame() != nullptr; }
  /// Whether the calling thread runs on this queue with the queue to itself (serial queue, or in a barrier).
  bool isHeldByCaller() const;

  virtual void async(dispatch_block_t block, bool barrier) = 0;
  virtual void sync(const dispatch_block_t& block, bool barrier) = 0;

 protected:
  DispatchQueue(std::string label, const dispatch_queue_attr_t& attributes) : label_(std::move(label)), attributes_(attributes) {}
  /// Stops the program: the caller waits for itself.
  [[noreturn]] void stopForReentrantSync() const;

 private:
  const CurrentFrame* innermostFrame() const;

  std::string label_;
  dispatch_queue_attr_t attributes_;
};

}  // namespace vidloom
