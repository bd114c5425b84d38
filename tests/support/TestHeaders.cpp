// The headers that the tests have in common are compiled with this file.
