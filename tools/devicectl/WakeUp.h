// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace devicectl {

/**
 * Ends another thread's poll(). Shared, since a notice of death may come when its waiter is gone.
 */
class WakeUp : public virtual android::RefBase {
  public:
    WakeUp();

    /** Readable from post() to clear(); -1 if the kernel gave no descriptor. Any thread. */
    int fd() const { return mFd; }

    /** Any thread. */
    void post();

    /** The waiter's thread. */
    void clear();

  protected:
    ~WakeUp() override;

  private:
    const int mFd;
};

}  // namespace devicectl
