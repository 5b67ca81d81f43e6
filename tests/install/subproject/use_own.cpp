double RadiusAboutBoth();

int main() { return RadiusAboutBoth() == 2.0 ? 0 : 1; }
