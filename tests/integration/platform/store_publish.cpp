// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Publishes one record without attributes, in a process of its own. usage: store-publish NAME
 */
#include <velta_pps/Publisher.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 64;
    }
    velta_pps::PPSNotification notification;
    notification.operation = velta_pps::PPSNotification::kPublish;
    notification.object.name = argv[1];
    return velta_pps::Publisher::self().publish(notification) == 0 ? 0 : 1;
}
