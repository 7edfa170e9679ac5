// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * A service around a core of the test's, and what its clients do with it.
 */

#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>
#include <string>

#include "tests/unit/support/LogCapture.h"
#include "tests/unit/support/LoopbackBinder.h"

/** Writes the token of @p name as it stands on the wire. */
inline void writeToken(android::Parcel& request, const char* name) {
    request.writeInt32(0);
    request.writeString16(android::String16(name));
}

/** The service @p Service of the interface @p Interface, and a client that calls it through parcels. */
template <typename Service, typename Interface, typename Core>
class ServiceFixture : public ::testing::Test {
  protected:
    static constexpr pid_t kClient = 1001;
    static constexpr pid_t kOther = 1002;
    using Writer = std::function<void(android::Parcel&)>;

    /** A request of the client's written field by field; the reply is at its start. */
    android::status_t transact(uint32_t code, const Writer& write, android::Parcel* reply,
                               const char* token) {
        android::Parcel request;
        writeToken(request, token);
        if (write) {
            write(request);
        }
        const CallingAs caller(kClient);
        return mService->transact(code, request, reply);
    }

    std::string dump(std::initializer_list<const char*> arguments) {
        android::Vector<android::String16> args;
        for (const char* argument : arguments) {
            args.add(android::String16(argument));
        }
        const int fd = memfd_create("dump", MFD_CLOEXEC);
        EXPECT_EQ(android::OK, mService->dump(fd, args));
        std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
        EXPECT_EQ(static_cast<ssize_t>(text.size()), pread(fd, text.data(), text.size(), 0));
        close(fd);
        return text;
    }

    void add(const android::sp<android::IBinder>& notifier, pid_t pid) {
        const CallingAs caller(pid);
        EXPECT_EQ(0, mService->addNotifier(notifier));
    }

    void remove(const android::sp<android::IBinder>& notifier, pid_t pid) {
        const CallingAs caller(pid);
        EXPECT_EQ(0, mService->removeNotifier(notifier));
    }

    LogCapture mLog;
    android::sp<Core> mCore = new Core();
    android::sp<Service> mService = new Service(mCore);
    android::sp<LoopbackBinder> mRemote = new LoopbackBinder(mService, kClient);
    android::sp<Interface> mProxy =
        android::interface_cast<Interface>(android::sp<android::IBinder>(mRemote));
};
