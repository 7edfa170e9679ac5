# SPDX-License-Identifier: Apache-2.0
"""The virtual head unit: a full virtual machine over the build machine's own file system."""
