"""Small pieces of C text and number handling.

The program works with 32-bit integers, single precision and C strings; Python does not. These
functions give the model the same arithmetic and the same idea of a line, a number and a blank.
"""

import re
import struct

TRIM_SET = b" \r\n\t"

_LONG_MAX = 2**63 - 1
_LONG_MIN = -(2**63)
_NUMBER = re.compile(rb"[ \t\n\v\f\r]*([+-]?)0*([0-9]*)")


def trim(text):
    """Strips blank, carriage return, line feed and tab from both ends."""
    return text.strip(TRIM_SET)


def int32(number):
    """Keeps the low 32 bits as a signed number."""
    return (number + 2**31) % 2**32 - 2**31


def strtol(text):
    """Reads a decimal number as the C library does, saturating at 64 bits."""
    sign, digits = _NUMBER.match(text).groups()
    # 20 digits are beyond 64 bits; Python itself refuses to convert thousands of them.
    magnitude = int(digits or b"0") if len(digits) < 20 else 2**64
    return max(_LONG_MIN, -magnitude) if sign == b"-" else min(_LONG_MAX, magnitude)


def number(text):
    """Reads a decimal number into 32 bits."""
    return int32(strtol(text))


def decimal(value):
    """Formats a number as decimal text."""
    return b"%d" % value


def divide(dividend, divisor):
    """Divides integers and truncates towards zero."""
    quotient = abs(dividend) // abs(divisor)
    return quotient if (dividend < 0) == (divisor < 0) else -quotient


def float32(value):
    """Rounds to single precision."""
    return struct.unpack("<f", struct.pack("<f", value))[0]


def lines(data):
    """Lines as a read loop sees them: no extra empty one behind the last line end."""
    found = data.split(b"\n")
    return found[:-1] if found[-1] == b"" else found


def split(text, separator):
    """Splits a list; an empty text is a list without entries."""
    return text.split(separator) if text else []


def behind(text, mark):
    """The text behind the first mark, or the whole text if there is none."""
    return text.split(mark, 1)[-1]


def before(text, mark):
    """The text before the first mark, or the whole text if there is none."""
    return text.split(mark, 1)[0]


def join_numbers(values):
    """Comma list of decimal numbers."""
    return b",".join(decimal(value) for value in values)


def split_numbers(text):
    """The numbers of a comma list; a part that is no number is 0."""
    return [number(part) for part in split(text, b",")]
