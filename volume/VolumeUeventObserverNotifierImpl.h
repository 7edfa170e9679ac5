// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/Uevent.h"
#include "common/UeventObserverNotifier.h"
#include "volume/VolumeDetectorImpl.h"

namespace volume {

/**
 * The volume detector's ear for uevents. Only those of whole disks concern it.
 *
 * It hears them from its registration on, before the detector's start and after its stop too. The commands
 * that only ask the kernel to look at media are run at any time; devices are added and removed while the
 * detector listens.
 */
class VolumeUeventObserverNotifierImpl : public UeventObserverNotifier {
  public:
    /** @param detector must not be null */
    explicit VolumeUeventObserverNotifierImpl(const android::sp<VolumeDetectorImpl>& detector)
        : mDetector(detector) {}

    /**
     * Uevent thread. Waits for the commands that it runs, and on "online" and "offline" for the disk.
     * @return 0
     */
    int onUevent(const android::sp<Uevent>& event) override;

  protected:
    ~VolumeUeventObserverNotifierImpl() override = default;

  private:
    void onChange(const Uevent& event, const android::String8& sysPath);
    void onOnline(const Uevent& event, const android::String8& sysPath);
    void onOffline(const android::String8& sysPath);

    const android::sp<VolumeDetectorImpl> mDetector;
};

}  // namespace volume
