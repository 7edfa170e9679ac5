// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What works inside one process, without a driver.
 */
#include <binder/BpBinder.h>
#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <bindercheck/BinderCheck.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

#include "platform/binder/servicemanager/ServiceDirectory.h"
#include "tests/unit/support/LoopbackBinder.h"

using android::BBinder;
using android::IBinder;
using android::interface_cast;
using android::IPCThreadState;
using android::IServiceManager;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::UNKNOWN_TRANSACTION;
using android::Vector;
using ::testing::HasSubstr;

namespace {

class Dumper : public BBinder {
  public:
    status_t dump(int fd, const Vector<String16>& args) override {
        std::string text = std::to_string(args.size());
        for (const String16& argument : args) {
            text += std::string(" ") + String8(argument).string();
        }
        return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? OK : -EIO;
    }
};

class Recipient : public IBinder::DeathRecipient {
  public:
    void binderDied(const android::wp<IBinder>& /*who*/) override {}
};

/** No driver stands behind this node, on any machine. */
class WithoutDriver : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { setenv("BINDER_DEVICE", "/nonexistent/binder", 1); }
};

}  // namespace

TEST(LocalBinderTest, ServesTheBaseTransactions) {
    const sp<BBinder> object = new BBinder();
    Parcel request;
    Parcel reply;
    EXPECT_EQ(OK, object->transact(IBinder::PING_TRANSACTION, request, &reply));
    EXPECT_EQ(0, reply.readInt32());
    Parcel name;
    EXPECT_EQ(OK, object->transact(IBinder::INTERFACE_TRANSACTION, request, &name));
    String16 descriptor("none");
    EXPECT_EQ(OK, name.readString16(&descriptor));
    EXPECT_EQ(String16(), descriptor);
    EXPECT_EQ(UNKNOWN_TRANSACTION, object->transact(1, request, &reply));
    EXPECT_EQ(OK, object->transact(IBinder::PING_TRANSACTION, request, nullptr));
    EXPECT_TRUE(object->isBinderAlive());
    EXPECT_EQ(OK, object->pingBinder());
    EXPECT_EQ(object.get(), object->localBinder());
    EXPECT_EQ(nullptr, object->remoteBinder());
    EXPECT_EQ(android::INVALID_OPERATION, object->linkToDeath(new Recipient()));
}

TEST(LocalBinderTest, PassesTheDumpsArguments) {
    const sp<LoopbackBinder> remote = new LoopbackBinder(new Dumper(), 1);
    const int fd = memfd_create("dump", MFD_CLOEXEC);
    Vector<String16> args;
    args.add(String16("one"));
    args.add(String16("two"));
    EXPECT_EQ(OK, remote->dump(fd, args));
    char text[32] = {};
    EXPECT_EQ(9, pread(fd, text, sizeof(text), 0));
    EXPECT_STREQ("2 one two", text);
    close(fd);
}

TEST(LocalBinderTest, RefusesABrokenDump) {
    const sp<BBinder> object = new Dumper();
    Parcel reply;
    Parcel noDescriptor;
    noDescriptor.writeInt32(1);
    EXPECT_LT(object->transact(IBinder::DUMP_TRANSACTION, noDescriptor, &reply), 0);
    Parcel manyArguments;
    manyArguments.writeFileDescriptor(STDERR_FILENO);
    manyArguments.writeInt32(INT32_MAX);
    EXPECT_LT(object->transact(IBinder::DUMP_TRANSACTION, manyArguments, &reply), 0);
}

TEST(LocalBinderTest, CallerIsThisProcessUnlessOneCalls) {
    IPCThreadState* const thread = IPCThreadState::self();
    EXPECT_EQ(getpid(), thread->getCallingPid());
    EXPECT_EQ(getuid(), thread->getCallingUid());
    {
        const CallingAs caller(4711, 1000);
        EXPECT_EQ(4711, thread->getCallingPid());
        EXPECT_EQ(1000U, thread->getCallingUid());
        const int64_t token = thread->clearCallingIdentity();
        EXPECT_EQ(getpid(), thread->getCallingPid());
        thread->restoreCallingIdentity(token);
        EXPECT_EQ(4711, thread->getCallingPid());
    }
    EXPECT_EQ(getpid(), thread->getCallingPid());
}

TEST_F(WithoutDriver, EveryCallFailsAtOnceAndSaysWhy) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(
        bindercheck::driverProblem().string(),
        HasSubstr("cannot open /nonexistent/binder: No such file or directory; load the kernel module "
                  "binder_linux (modprobe binder_linux)"));
    EXPECT_THAT(bindercheck::serviceManagerProblem().string(), HasSubstr("cannot open"));
    const sp<IServiceManager> manager = android::defaultServiceManager();
    ASSERT_NE(nullptr, manager);
    EXPECT_EQ(nullptr, manager->checkService(String16("any")));
    EXPECT_EQ(nullptr, manager->getService(String16("any")));
    EXPECT_EQ(android::NO_INIT, manager->addService(String16("any"), new BBinder()));
    EXPECT_TRUE(manager->listServices().isEmpty());
    EXPECT_EQ(android::NO_INIT, ProcessState::self()->getContextObject()->pingBinder());
    EXPECT_EQ(android::NO_INIT, ProcessState::self()->becomeContextManager(new BBinder()));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

TEST(ServiceDirectoryTest, RegistersFindsAndReplaces) {
    const sp<ServiceDirectory> directory = new ServiceDirectory();
    const sp<IServiceManager> manager =
        interface_cast<IServiceManager>(sp<IBinder>(new LoopbackBinder(directory, 1)));
    const sp<IBinder> first = new BBinder();
    const sp<IBinder> second = new BBinder();
    EXPECT_EQ(nullptr, manager->checkService(String16("a")));
    EXPECT_EQ(OK, manager->addService(String16("a"), first));
    EXPECT_EQ(OK, manager->addService(String16("b"), first));
    EXPECT_EQ(first, manager->checkService(String16("a")));
    EXPECT_EQ(OK, manager->addService(String16("a"), second));
    EXPECT_EQ(second, manager->checkService(String16("a")));
    EXPECT_EQ(second, manager->getService(String16("a")));
    const Vector<String16> names = manager->listServices();
    ASSERT_EQ(2U, names.size());
    EXPECT_EQ(String16("a"), names[0]);
    EXPECT_EQ(String16("b"), names[1]);
}

TEST(ServiceDirectoryTest, RefusesWhatNobodyCouldUse) {
    const sp<ServiceDirectory> directory = new ServiceDirectory();
    const sp<IServiceManager> manager =
        interface_cast<IServiceManager>(sp<IBinder>(new LoopbackBinder(directory, 1)));
    const sp<IBinder> service = new BBinder();
    EXPECT_LT(manager->addService(String16(), service), 0);
    EXPECT_LT(manager->addService(String16(std::string(128, 'n').c_str()), service), 0);
    EXPECT_EQ(OK, manager->addService(String16(std::string(127, 'n').c_str()), service));
    EXPECT_LT(manager->addService(String16("null"), nullptr), 0);
    EXPECT_EQ(1U, manager->listServices().size());
}

TEST(ServiceDirectoryTest, DropsTheDeadAndSparesTheirSuccessors) {
    const sp<ServiceDirectory> directory = new ServiceDirectory();
    const sp<LoopbackBinder> first = new LoopbackBinder(new BBinder(), 1);
    const sp<LoopbackBinder> second = new LoopbackBinder(new BBinder(), 2);
    EXPECT_EQ(OK, directory->addService(String16("a"), first));
    EXPECT_EQ(1U, first->linkCount());
    EXPECT_EQ(OK, directory->addService(String16("a"), second));
    EXPECT_EQ(0U, first->linkCount());
    directory->serviceDied(String16("a"), android::wp<IBinder>(first));
    EXPECT_EQ(sp<IBinder>(second), directory->checkService(String16("a")));
    second->die();
    EXPECT_EQ(nullptr, directory->checkService(String16("a")));
    EXPECT_TRUE(directory->listServices().isEmpty());
    EXPECT_EQ(android::DEAD_OBJECT, directory->addService(String16("a"), second));
    EXPECT_EQ(nullptr, directory->checkService(String16("a")));
}

TEST(ServiceDirectoryTest, RefusesBrokenRequests) {
    const sp<ServiceDirectory> directory = new ServiceDirectory();
    Parcel foreign;
    foreign.writeInterfaceToken(String16("another"));
    Parcel reply;
    for (uint32_t code = 1; code <= 4; ++code) {
        EXPECT_LT(directory->transact(code, foreign, &reply), 0);
        Parcel cut;
        cut.writeInterfaceToken(IServiceManager::descriptor);
        EXPECT_LT(directory->transact(code, cut, &reply), 0);
    }
    EXPECT_EQ(UNKNOWN_TRANSACTION, directory->transact(5, foreign, &reply));
    Parcel negative;
    negative.writeInterfaceToken(IServiceManager::descriptor);
    negative.writeInt32(-1);
    EXPECT_LT(directory->transact(4, negative, &reply), 0);
}
