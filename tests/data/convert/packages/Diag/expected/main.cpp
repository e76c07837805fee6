char Text_name[16]="";
uint8_t Bus_bytes[16]={};
double Engine_speed=0;
sys_RunScript("/script/Diag/main.cpp",NULL,0,NULL);
int main(int argc,char **argv){return 0;}
