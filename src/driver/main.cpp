// riverles: the solver's entry point.
int main() { return 0; }
