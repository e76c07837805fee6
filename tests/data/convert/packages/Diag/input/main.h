#ifndef mainRun_H
#define mainRun_H
extern "C"{
void  __declspec(dllexport) mainRun();

}
#endif
