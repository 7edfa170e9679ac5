// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/AndroidThreads.h>

#include <atomic>

/**
 * A system that is short of threads, as long as the object lives: libutils is refused the first few that it
 * asks for. One at a time. Threads that cannot call Java are not asked for here.
 */
class RefusedThreads {
  public:
    explicit RefusedThreads(int count) {
        sAsked = 0;
        sToRefuse = count;
        androidSetCreateThreadFunc(create);
    }
    ~RefusedThreads() { androidSetCreateThreadFunc(androidCreateRawThreadEtc); }
    RefusedThreads(const RefusedThreads&) = delete;
    RefusedThreads& operator=(const RefusedThreads&) = delete;

    /** How many threads were asked for. */
    static int asked() { return sAsked; }

  private:
    static int create(android_thread_func_t entry, void* argument, const char* name, int32_t priority,
                      size_t stackSize, android_thread_id_t* id) {
        constexpr int kRefused = 0;
        return ++sAsked <= sToRefuse
                   ? kRefused
                   : androidCreateRawThreadEtc(entry, argument, name, priority, stackSize, id);
    }

    static inline std::atomic<int> sAsked{0};
    static inline std::atomic<int> sToRefuse{0};
};
