#include <QApplication>

int runColorPickerTests(int argc, char **argv);
int runLongPressTests(int argc, char **argv);
int runTintedIconTests(int argc, char **argv);

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const int failures = runColorPickerTests(argc, argv);
    return failures + runLongPressTests(argc, argv) + runTintedIconTests(argc, argv);
}
