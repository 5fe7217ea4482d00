// bench_nothing: a statically linked program that does nothing, the start-up
// reference the benchmarks hold the client's shortest runs against.
int main() { return 0; }
