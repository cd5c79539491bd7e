// A program that calls nothing: linking it with a whole layer is the test.
int main() {
  return 0;
}
