// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace devicectl {

/**
 * Keeps the libraries' log lines from standard error, where this program's one line belongs and a picture on
 * the terminal would be spoilt. The environment variable ANDROID_LOG_TAGS, set to any text, lets them come.
 *
 * Before other threads start only.
 */
void quietLibraries();

}  // namespace devicectl
