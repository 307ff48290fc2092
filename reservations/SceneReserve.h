#pragma once

#include <QString>

// A reservation of a scene is an ordinary line, "シーン|<scene name>": the
// classic lists show it by that name, and every reader of the store keeps
// reading it. A remote of that name with a key of the scene's name wins.
namespace Reserve {

inline const QString SceneDevice = QStringLiteral("シーン");

} // namespace Reserve
