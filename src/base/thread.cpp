#include "base/thread.h"

#include <csignal>

int start_thread(pthread_t* handle, const char* name, thread_body body, void* argument) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(handle, nullptr, body, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error == 0) pthread_setname_np(*handle, name);
  return error;
}

int start_detached_thread(const char* name, thread_body body, void* argument) {
  pthread_t handle{};
  const int error = start_thread(&handle, name, body, argument);
  if (error == 0) pthread_detach(handle);
  return error;
}
