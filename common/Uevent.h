// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The decoded form of one kernel uevent.
 */

#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>
#include <memory>

/**
 * One uevent: what happened (action), to which device (path, subsystem), and up to 32 further properties.
 *
 * A datagram is a sequence of NUL-terminated tokens: the header `action@/path`, then `KEY=value` properties.
 * ACTION, SEQNUM and SUBSYSTEM have fields of their own; every other property, DEVPATH too, becomes a
 * parameter.
 *
 * A record is written by the thread that decodes it and only read afterwards, by any thread. The strings that
 * it returns belong to it and live as long as it does, or until it decodes again.
 */
class Uevent : public android::RefBase {
  public:
    enum Action : int32_t {
        kActionNone = 0,  //!< no ACTION property, or a word not listed here
        kActionAdd = 1,
        kActionRemove = 2,
        kActionChange = 3,
        kActionMove = 4,
        kActionOnline = 5,
        kActionOffline = 6,
    };

    /** Most parameters that a record keeps; further ones are dropped. */
    static constexpr int kMaxParams = 32;

    /** An empty record, for decode(). */
    Uevent();

    /** Decodes; logs an error line and stays empty when @p buffer holds no uevent. See decode(). */
    Uevent(char* buffer, size_t length);

    Uevent(const Uevent&) = delete;
    Uevent& operator=(const Uevent&) = delete;

    /**
     * Fills the record from one datagram; whatever it held before is gone, also upon failure.
     *
     * A property without "=" swallows what follows it up to the next "=" of the datagram; without one before
     * the end, it is dropped.
     *
     * @param buffer  the datagram, of any content. It is written to: its last byte becomes NUL, so that the
     * last token ends whatever came, and so does the "=" of each parameter. Not needed afterwards.
     * @param length  its size in bytes
     * @return whether it was a uevent: not empty, and with an "@" in its header
     */
    bool decode(char* buffer, size_t length);

    /** The kernel's running number of events; 0 when the uevent has none. */
    int32_t getSeqnum() const { return mSeqnum; }

    /** Path of the device below the root of sysfs; null in a record that was not decoded. */
    const char* getPath() const { return mPath; }

    /** One of Action. */
    int32_t getAction() const { return mAction; }

    /** Null when the uevent names no subsystem. */
    const char* getSubsystem() const { return mSubsystem; }

    /** Count of parameters, 0 to kMaxParams. */
    int32_t getParamSize() const { return mParamSize; }

    /** Name of a parameter, in order of arrival. Aborts unless 0 <= @p index < getParamSize(). */
    const char* paramName(int index) const;

    /** Value of a parameter, in order of arrival. Aborts unless 0 <= @p index < getParamSize(). */
    const char* paramValue(int index) const;

    /**
     * Value of the first parameter whose name begins with @p key: "DEV" finds DEVPATH as well as DEVNAME.
     *
     * @return null, with an error line, when there is none
     */
    const char* FindParam(const char* key) const;

    /** Writes the record to the log, one info line for each field and parameter. */
    void dump() const;

  protected:
    ~Uevent() override = default;

  private:
    struct Free {
        void operator()(char* block) const;
    };

    void clear();
    bool parse(char* buffer, size_t length);
    char* parseProperty(char* token, char* end);
    void keepText(const char* buffer, size_t length);

    int32_t mSeqnum = 0;
    const char* mPath = nullptr;
    int32_t mAction = kActionNone;
    const char* mSubsystem = nullptr;
    // Filled from the front; the first null name ends the list.
    const char* mParamNames[kMaxParams];
    const char* mParamValues[kMaxParams];
    int32_t mParamSize = 0;
    // The record's copy of the datagram, which all strings above point into: one allocation, not seventy.
    std::unique_ptr<char, Free> mText;
};
