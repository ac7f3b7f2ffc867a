// The shared library is made of the static parts of its floors; a library target must
// have a source of its own.
