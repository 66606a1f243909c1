// What a register holds, as far as the writes to it tell: its reading is older than a write that was queued
// after its frame, and some registers follow late. A plain record: who owns one guards it. Any thread.
#pragma once

#include "power_board/work_queue.h"

class written_register {
 public:
  // A write has been queued, or is about to be made.
  void queue(const work_item& write) {
    last_ = write;
    stands_ = known_ = true;
    refused_ = false;
    ++queued_;
  }

  // The queue has refused one that stands all the same.
  void refuse(const work_item& write) {
    last_ = write;
    stands_ = refused_ = true;
  }

  // The oldest that was queued has been sent; or else it was dropped or has failed, and no value is known to
  // be the register's until the next.
  void perform(bool sent) {
    ++performed_;
    failed_ = !sent;
    if (!sent) known_ = false;
  }

  // A count, for trust().
  unsigned performed() const { return performed_; }

  // After a good frame, with the count as it was before: its reading holds when every write had been
  // performed.
  void trust(unsigned performed_before) {
    if (queued_ == performed_before) stands_ = failed_ = false;
  }

  // The last write, which stands in place of the reading; null while the reading holds.
  const work_item* written() const { return stands_ ? &last_ : nullptr; }

  // Whether the register holds that one, or will when the queue has been worked off.
  bool is_known() const { return known_; }

  // Whether the last that was performed was not sent.
  bool has_failed() const { return failed_; }

  // Whether the last that was given does not reach the board: refused, or not sent with none behind it.
  bool is_lost() const { return refused_ || (failed_ && queued_ == performed_); }

 private:
  work_item last_;
  bool stands_ = false;
  bool known_ = false;
  bool refused_ = false;
  bool failed_ = false;
  unsigned queued_ = 0;
  unsigned performed_ = 0;
};
