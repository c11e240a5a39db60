// The C library's assertions, live in every build: a release must end here too, rather than carry on with a
// broken caller and overwrite a settings file. To be included after everything else.
#ifdef NDEBUG
#undef NDEBUG
#endif
#include <cassert>
