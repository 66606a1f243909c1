// A refresh and a write allocate nothing. Only where the sanitizers do not bring a malloc of their own.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__) && !defined(__clang__)
#include "power_board/rig.h"

static thread_local long allocations = 0;  // of this thread

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* malloc(size_t size) noexcept { return ++allocations, __libc_malloc(size); }
extern "C" void* calloc(size_t count, size_t size) noexcept {
  return ++allocations, __libc_calloc(count, size);
}

TEST_F(rig, a_refresh_and_a_write_allocate_nothing) {
  constexpr int kTimes = 100;
  const work_item item{.kind = work_kind::write, .number = 6, .length = 1};
  ASSERT_EQ(open_bus(&board_), 0);
  read_status(&board_);  // the streams' buffers and the time zone come with the first lines
  write_register(&board_, item);
  const auto model = std::make_unique<board_model>();
  board_write(*model, 6, {item.data.data(), 1});
  long before = allocations;
  for (int i = 0; i < kTimes; ++i) board_write(*model, 6, {item.data.data(), 1});
  const long of_the_log = allocations - before;  // the simulated board keeps what is written
  before = allocations;
  for (int i = 0; i < kTimes; ++i) {
    read_status(&board_);
    write_register(&board_, item);
    EXPECT_EQ(orb_power_board_issue_write(&board_, 6, item.data.data(), 1), 0);
  }
  EXPECT_GT(of_the_log, 0);
  EXPECT_EQ(allocations - before, of_the_log);
  close_bus(&board_);
}
#endif
