// ctl_database: how the tools reach the recorder's database.
#pragma once

// With a limit, as a table may be locked for as long as somebody likes.
constexpr const char* DAEMON_DATABASE = "dbname=morvex user=root connect_timeout=3 options='-c statement_timeout=3000'";
