// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * The one assertion of the system.
 *
 * A failed assertion is a programming error of this process or of a client that breaks the contract of an
 * operation. It writes one fatal log line and aborts; in the daemon the abort ends in the signal catcher, so
 * the process leaves with status 0 and its supervisor starts it anew.
 *
 * The line reads
 *
 *     assertion "CONDITION" failed: file "FILE", line LINE, function "FUNCTION"
 *
 * with the source file's name without its extension. The tag is the file's name too.
 */

#include <android/log.h>

/**
 * Aborts with the line above unless @p holds.
 *
 * For the places whose texts are fixed by contract: compilers spell a function's signature differently, so
 * condition, file, line and function are passed as they must be printed.
 *
 * @param holds      the condition, evaluated once
 * @param condition  its printed text
 * @param file       source file name without extension; also the log tag
 * @param line       printed line number
 * @param function   printed signature
 */
#define SERVICE_ASSERT_AT(holds, condition, file, line, function)                                  \
    do {                                                                                           \
        if (__builtin_expect(!(holds), 0)) {                                                       \
            __android_log_assert(condition, file,                                                  \
                                 "assertion \"%s\" failed: file \"%s\", line %d, function \"%s\"", \
                                 condition, file, line, function);                                 \
        }                                                                                          \
    } while (0)

/**
 * As SERVICE_ASSERT_AT where only the function's text is fixed: the line is the one of the call.
 */
#define SERVICE_ASSERT_IN(holds, condition, file, function) \
    SERVICE_ASSERT_AT(holds, condition, file, __LINE__, function)

/**
 * As SERVICE_ASSERT_AT where neither line nor function text is fixed.
 */
#define SERVICE_ASSERT(holds, condition, file) \
    SERVICE_ASSERT_AT(holds, condition, file, __LINE__, __PRETTY_FUNCTION__)
