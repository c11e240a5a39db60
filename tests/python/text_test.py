# SPDX-License-Identifier: MIT
"""Text as the network and files have it."""
import random
import unittest

import kelo_utils
from kelo_utils import Error


class TextTest(unittest.TestCase):
    def name_of_failure(self, function, *arguments):
        with self.assertRaises(Error) as caught:
            function(*arguments)
        return caught.exception.name

    def test_septets(self):
        self.assertEqual(kelo_utils.gsm_encode("@$a€"), b"\0\2a\x1be")
        self.assertEqual(kelo_utils.gsm_decode(b"\0\2a"), "@$a")
        self.assertEqual(kelo_utils.gsm_encode(""), b"")
        self.assertEqual(kelo_utils.gsm_decode(b""), "")
        self.assertEqual(self.name_of_failure(kelo_utils.gsm_encode, "中"), "KELO_GSM_NOT_ENCODABLE")
        self.assertEqual(self.name_of_failure(kelo_utils.gsm_encode, "\udcff"), "KELO_GSM_ILL_FORMED")
        with self.assertRaises(ValueError):
            kelo_utils.gsm_decode(b"\x80")

    def test_packing(self):
        self.assertEqual(kelo_utils.gsm_pack(b"hello"), bytes.fromhex("e8329bfd06"))
        self.assertEqual(kelo_utils.gsm_unpack(bytes.fromhex("e8329bfd06")), b"hello")
        for count in range(254):
            septets = bytes(random.Random(count).randrange(128) for _ in range(count))
            packed = kelo_utils.gsm_pack(septets)
            self.assertEqual(len(packed), (7 * count + 7) // 8)
            self.assertEqual(kelo_utils.gsm_unpack(packed)[:count - 1], septets[:max(count - 1, 0)])
        self.assertEqual(self.name_of_failure(kelo_utils.gsm_pack, b"\x80"), "KELO_GSM_NOT_ENCODABLE")
        with self.assertRaises(ValueError):
            kelo_utils.gsm_unpack(bytes(224))

    def test_ussd(self):
        for text in ("", "hello @", "Grüezi", "Łódź 中", "😀"):
            scheme, octets = kelo_utils.ussd_encode(text)
            self.assertEqual(kelo_utils.ussd_decode(scheme, octets), text)
        self.assertEqual(kelo_utils.ussd_encode("a", kelo_utils.KELO_USSD_UCS2), (0x48, b"\0a"))
        self.assertEqual(self.name_of_failure(kelo_utils.ussd_encode, "中", kelo_utils.KELO_USSD_SEPTETS),
                         "KELO_GSM_NOT_ENCODABLE")
        self.assertEqual(kelo_utils.ussd_decode(0x44, b"8 bit"), "8 bit")
        with self.assertRaises(Error):
            kelo_utils.ussd_decode(0x80, b"a")

    def test_ucs2(self):
        for text in ("", "a", "€", "a\N{GRINNING FACE}b"):
            for order in ("big", "little"):
                encoded = kelo_utils.ucs2_encode(text, order)
                self.assertEqual(encoded, text.encode("utf-16-" + order[0] + "e"))
                self.assertEqual(kelo_utils.ucs2_decode(encoded, order), text)
        self.assertEqual(self.name_of_failure(kelo_utils.ucs2_decode, b"\xd8\0\0a"), "KELO_UNICODE_SOURCE_ILLEGAL")
        self.assertEqual(self.name_of_failure(kelo_utils.ucs2_decode, b"\xd8\0"), "KELO_UNICODE_SOURCE_EXHAUSTED")
        self.assertEqual(self.name_of_failure(kelo_utils.ucs2_encode, "\udc80"), "KELO_UNICODE_SOURCE_ILLEGAL")
        with self.assertRaises(ValueError):
            kelo_utils.ucs2_decode(b"a")
        with self.assertRaises(ValueError):
            kelo_utils.ucs2_encode("a", "middle")

    def test_hexadecimal(self):
        every = bytes(range(256))
        self.assertEqual(kelo_utils.hex_encode(every), every.hex().upper())
        self.assertEqual(kelo_utils.hex_decode(every.hex()), every)
        self.assertEqual((kelo_utils.hex_encode(b""), kelo_utils.hex_decode("")), ("", b""))
        for digits in ("0", "0g", "€"):
            with self.assertRaises(Error):
                kelo_utils.hex_decode(digits)

    def test_text_is_cut_between_characters(self):
        cuts = [kelo_utils.utf8_cut("a€b", size) for size in range(1, 8)]
        self.assertEqual(cuts, ["", "a", "a", "a", "a€", "a€b", "a€b"])

    def test_bytes_of_every_kind(self):
        for octets in (b"ab", bytearray(b"ab"), memoryview(b"ab"), memoryview(b"a.b.")[::2]):
            self.assertEqual(kelo_utils.hex_encode(octets), "6162")
        for other in ("ab", 5, None, [97]):
            with self.assertRaises(TypeError):
                kelo_utils.hex_encode(other)
