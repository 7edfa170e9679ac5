// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Looper.h>
#include <utils/RefBase.h>

namespace volume {

class VolumeManagerImpl;

/**
 * The handler of the volume manager's queue. Nothing posts to it; it logs what comes all the same.
 */
class VolumeManagerMessageHandler : public android::MessageHandler {
  public:
    explicit VolumeManagerMessageHandler(const android::wp<VolumeManagerImpl>& manager) : mManager(manager) {}

    /** Owner's queue thread. */
    void handleMessage(const android::Message& message) override;

  protected:
    ~VolumeManagerMessageHandler() override = default;

  private:
    const android::wp<VolumeManagerImpl> mManager;
};

}  // namespace volume
