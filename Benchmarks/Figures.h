#pragma once

#include "Benchmarks/Figure.h"

std::vector<Figure> logCallFigures();
std::vector<Figure> snapshotStoreFigures();
std::vector<Figure> notificationHistoryFigures();
std::vector<Figure> pushFigures();
std::vector<Figure> requestFigures();
std::vector<Figure> wholeProgramFigures();
std::vector<Figure> screenFigures();
std::vector<Figure> windowlessFigures();
