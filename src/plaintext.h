// plaintext: text from outside, made fit for a terminal.
// Numbers, names and displays come from the telephone network with any bytes in them, and a terminal obeys control
// characters: they move the cursor, rename the window, or make one line look like two.
// Threads:   any; no allocation and no lock, so a crash handler may come here.
#pragma once

#include <cstddef>

// Puts a question mark in the place of each byte of a control character: 0 to 31, DEL, and 128 to 159, alone as Latin-1
// has it or as a character of UTF-8. Other characters of UTF-8 stay, and so do other bytes that are none.
void MaskControls(char* acText, std::size_t iLength);
