# SPDX-License-Identifier: Apache-2.0
"""What goes wrong, with the sentences of the program."""

from __future__ import annotations

from typing import Optional


class Error(Exception):
    """A failure of the library. As text it is the program's line: FILE: what is wrong."""

    kind = "error"

    def __init__(
        self, sentence: str, file: str = "", block: str = "", offset: Optional[int] = None
    ) -> None:
        super().__init__(sentence, file, block, offset)
        self.sentence = sentence  #: what is wrong
        self.file = file or None  #: the file at fault; may name two, "A, B"
        self.block = block or None  #: the block of the record at fault, where it is known
        self.offset = offset  #: byte of the file, where it is known

    def __str__(self) -> str:
        return f"{self.file}: {self.sentence}" if self.file else self.sentence


class UsageError(Error):
    """What was asked for makes no sense, or not for this trace."""

    kind = "usage"


class UnreadableError(Error):
    """An input can't be read, or is no usable trace."""

    kind = "unreadable"


class UnwritableError(Error):
    """An output can't be written."""

    kind = "unwritable"
