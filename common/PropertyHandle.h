// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Inside of a property handle.
 */

#include <libxml/tree.h>
#include <pthread.h>

/** Made by PropertyOpen(), freed by PropertyClose(). */
struct Property {
    /** Guards document and the saves of the file. */
    pthread_mutex_t* mutex;
    xmlDoc* document;
    /** As given to PropertyOpen(). */
    char* path;
    /** Of PropertyOption. */
    int options;
};
