// ctl_text: what the database and the telephone network hold, laid out for a terminal.
#pragma once

#include <string>
#include <vector>

// Without control characters.
std::string Masked(std::string strText);
// Line by line, since a message of the database library often has several, with tabs before the second.
std::string MaskedLines(const std::string& strText);
// Columns as wide as their widest cell, two blanks apart; the first row is the heading. Cells are masked.
std::string Table(std::vector<std::vector<std::string>> vRows);
