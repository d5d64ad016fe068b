// Texts: a list of texts as tests collect and compare it: log lines, statements, what a fake has noted.
#pragma once

#include <string>
#include <vector>

using Texts = std::vector<std::string>;
