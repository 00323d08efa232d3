// What the shared library exports: all that a namespace so marked declares, in installed headers
// alone. Everything else is hidden.
#ifndef BADGEMINT_SUPPORT_EXPORTED_H
#define BADGEMINT_SUPPORT_EXPORTED_H

#define BADGEMINT_EXPORTED [[gnu::visibility("default")]]

#endif  // BADGEMINT_SUPPORT_EXPORTED_H
