#pragma once

#include <QString>

// Whether version a is newer than b. Each text is read as dot-separated
// numbers, each number being a part's leading digits (0 when it has none);
// missing trailing numbers count as 0, so "1.0" equals "1.0.0" and
// "0.9.2-hotfix" equals "0.9.2".
bool isNewerVersion(const QString &a, const QString &b);
