#pragma once

void cls_initialize(int& count);
void cls_finalize(int& count);
