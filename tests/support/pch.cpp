// A program of nothing, for the headers that are precompiled with it.
int main() {
  return 0;
}
