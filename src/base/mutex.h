// A mutex, a scoped lock and a condition over the pthread types. They carry clang's thread-safety attributes,
// so a build with clang's -Wthread-safety proves that every GUARDED_BY member is touched under its mutex, and
// they are constant-initialised and never destroyed, so process-wide state may outlive main(); the standard
// library's condition has neither (B1).
#pragma once

#include <pthread.h>

#include <cstdint>
#include <ctime>

#if defined(__clang__)
#define ORB_THREAD_SAFETY(x) __attribute__((x))
#else
#define ORB_THREAD_SAFETY(x)
#endif

#define GUARDED_BY(m) ORB_THREAD_SAFETY(guarded_by(m))
#define REQUIRES(...) ORB_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ORB_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

class ORB_THREAD_SAFETY(capability("mutex")) mutex {
 public:
  constexpr mutex() = default;
  mutex(const mutex&) = delete;
  mutex& operator=(const mutex&) = delete;

  void lock() ORB_THREAD_SAFETY(acquire_capability()) { pthread_mutex_lock(&handle_); }
  bool try_lock() ORB_THREAD_SAFETY(try_acquire_capability(true)) {
    return pthread_mutex_trylock(&handle_) == 0;
  }
  // For the compiler, where it cannot see that the caller holds it.
  void assert_held() const ORB_THREAD_SAFETY(assert_capability(this)) {}
  void unlock() ORB_THREAD_SAFETY(release_capability()) { pthread_mutex_unlock(&handle_); }

 private:
  friend class condition;
  pthread_mutex_t handle_ = PTHREAD_MUTEX_INITIALIZER;
};

class ORB_THREAD_SAFETY(scoped_lockable) mutex_lock {
 public:
  explicit mutex_lock(mutex& m) ORB_THREAD_SAFETY(acquire_capability(m)) : mutex_(m) { mutex_.lock(); }
  ~mutex_lock() ORB_THREAD_SAFETY(release_capability()) { mutex_.unlock(); }
  mutex_lock(const mutex_lock&) = delete;
  mutex_lock& operator=(const mutex_lock&) = delete;

 private:
  mutex& mutex_;
};

// Wait in a `while` loop over the predicate, under the mutex that guards it.
class condition {
 public:
  constexpr condition() = default;
  condition(const condition&) = delete;
  condition& operator=(const condition&) = delete;

  void wait(mutex& m) REQUIRES(m) { pthread_cond_wait(&handle_, &m.handle_); }
  // At most until monotonic_ns() reaches `deadline_ns`.
  void wait_until_ns(mutex& m, int64_t deadline_ns) REQUIRES(m) {
    const timespec deadline{deadline_ns / 1'000'000'000, deadline_ns % 1'000'000'000};
    pthread_cond_clockwait(&handle_, &m.handle_, CLOCK_MONOTONIC, &deadline);
  }
  void signal() { pthread_cond_signal(&handle_); }

 private:
  pthread_cond_t handle_ = PTHREAD_COND_INITIALIZER;
};
