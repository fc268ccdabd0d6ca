#pragma once

#include <QPixmap>

// The main window's picture, drawn at run time so that no image file has to travel with the
// program. GUI thread.
namespace Pictures {

// The instrument with its display and keys, and a serial cable: the main window's decoration.
QPixmap instrumentPicture(const QSize &size, qreal devicePixelRatio = 1.0);

} // namespace Pictures
