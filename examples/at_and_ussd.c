/* SPDX-License-Identifier: MIT */
/*
 * AT and USSD: a USSD code is encoded and sent to the modem, and the answer of the network is decoded.
 *
 * The modem's AT service is on UDP port 5555. Without a modem start one that answers by a script:
 * kelo_scripted_modem at_and_ussd.modem
 *
 * Build: cc -o at_and_ussd at_and_ussd.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   the signal: +CSQ: 23,99
 *   sent: AT+CUSD=1,"AA180C3602",15
 *   the network: Balance: 12.50
 *   a wrong PIN: +CME ERROR: 16
 *   no answer in 300 ms: -1
 */
#include <kelo_utils/kelo_utils.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { TIMEOUT_MS = 5000 };

/* Decodes the line +CUSD: <m>,"<hexadecimal digits>",<coding scheme>. */
static void show_answer(const char* line) {
  char digits[321];
  uint8_t bytes[160];
  char text[512];
  unsigned mode;
  unsigned dcs;
  if (sscanf(line, "+CUSD: %u,\"%320[0-9A-F]\",%u", &mode, digits, &dcs) != 3) return;
  const int length = kelo_hex_StringToBinary(digits, (uint32_t)strlen(digits), bytes, sizeof bytes);
  if (kelo_util_convert_ussd_string_to_utf8((uint8_t)dcs, bytes, length, text, sizeof text) > 0)
    printf("the network: %s\n", text);
}

static void ask_network(const char* code) {
  uint8_t dcs;
  uint8_t bytes[160];
  char digits[321];
  char command[400];
  char lines[1024];
  /* Septets where the text has only characters of the GSM alphabet, and otherwise UCS-2. */
  const int32_t length = kelo_ussd_encode(code, KELO_USSD_CHOOSE, &dcs, bytes, sizeof bytes);
  if (length < 0) exit(EXIT_FAILURE);
  kelo_hex_BinaryToString(bytes, (uint32_t)length, digits, sizeof digits);
  snprintf(command, sizeof command, "AT+CUSD=1,\"%s\",%u", digits, (unsigned)dcs);
  printf("sent: %s\n", command);
  if (kelo_at_exchange(command, TIMEOUT_MS, lines, sizeof lines, NULL) == KELO_AT_OK) show_answer(lines);
}

int main(void) {
  char lines[256];
  int32_t reason = -1;
  if (kelo_at_exchange("AT+CSQ", TIMEOUT_MS, lines, sizeof lines, NULL) != KELO_AT_OK) return EXIT_FAILURE;
  printf("the signal: %.*s\n", (int)strcspn(lines, "\n"), lines);

  ask_network("*100#");

  /* The final result tells what has failed; the reason is a number of the modem. */
  if (kelo_at_exchange("AT+CPIN=\"0000\"", TIMEOUT_MS, NULL, 0, &reason) == KELO_AT_CME_ERROR)
    printf("a wrong PIN: +CME ERROR: %d\n", (int)reason);

  printf("no answer in 300 ms: %d\n", (int)kelo_at_exchange("AT+COPS=?", 300, NULL, 0, NULL));
  return EXIT_SUCCESS;
}
