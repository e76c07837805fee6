int32_t Bus_ints[16]={};
sys_RunScript("/script/Measure/main.cpp",NULL,0,NULL);
int main(int argc,char **argv){return 0;}
