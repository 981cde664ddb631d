#pragma once

/// Whether a line of a child's output begins with one of the marks of an error, translated or as they stand; whatever may
/// follow.
bool rds_IsErrorLine(const char* line);
