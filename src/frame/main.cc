// Placeholder bodies until this module is written.
int main() { return 0; }
