# SPDX-License-Identifier: Apache-2.0
"""Failures that a user is told about in one line."""

from __future__ import annotations


class HeadunitError(Exception):
    """Something the user can understand and act on; the text says what failed and where its log is."""


class GuestError(HeadunitError):
    """The guest refused or could not do what it was asked to do."""


class GuestTimeout(GuestError):
    """A wait reached its limit."""


class GuestGone(GuestError):
    """The link to the guest is closed: the machine ended or its agent died."""
